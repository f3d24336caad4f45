(class_declaration
  declaration_kind: ["class" "actor"]
  name: (type_identifier) @name
  body: (_) @body) @definition.class
(class_declaration
  declaration_kind: "struct"
  name: (type_identifier) @name
  body: (_) @body) @definition.struct
(class_declaration
  declaration_kind: "enum"
  name: (type_identifier) @name
  body: (_) @body) @definition.enum
(class_declaration
  declaration_kind: "extension"
  name: (_) @name
  body: (_)) @scope.class
(protocol_declaration name: (type_identifier) @name body: (_) @body) @definition.interface
(enum_entry name: (simple_identifier) @name) @definition.constant
(typealias_declaration . (modifiers)? . "typealias" . (type_identifier) @name) @definition.type
(associatedtype_declaration . (modifiers)? . "associatedtype" . (type_identifier) @name)
  @definition.type

(function_declaration
  name: [
    (simple_identifier) (custom_operator)
    "==" "!=" "===" "!==" "<" ">" "<=" ">=" "+" "-" "*" "/" "%" "!" "~" "+=" "-=" "*=" "/="
  ] @name
  body: (_) @body) @definition.function
(protocol_function_declaration name: (simple_identifier) @name) @definition.function
(init_declaration "init" @name body: (_)? @body) @definition.method
(deinit_declaration "deinit" @name body: (_) @body) @definition.method
(subscript_declaration "subscript" @name (computed_property) @body) @definition.method
(property_declaration
  name: (pattern bound_identifier: (simple_identifier) @name)
  computed_value: (_) @body) @definition.method
(protocol_property_declaration
  name: (pattern bound_identifier: (simple_identifier) @name)) @definition.method

((source_file (property_declaration
  (value_binding_pattern) @_let
  name: (pattern bound_identifier: (simple_identifier) @name)) @definition.constant)
  (#eq? @_let "let"))
((property_declaration
  (modifiers (property_modifier) @_static)
  (value_binding_pattern) @_let
  name: (pattern bound_identifier: (simple_identifier) @name)) @definition.constant
  (#any-of? @_static "static" "class")
  (#eq? @_let "let"))

[(comment) (multiline_comment)] @comment
