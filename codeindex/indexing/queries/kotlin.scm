(package_header (identifier) @package)

(class_declaration
  "interface"
  (type_identifier) @name
  (class_body)? @body) @definition.interface
(class_declaration
  "enum"
  (type_identifier) @name
  (enum_class_body)? @body) @definition.enum
(class_declaration
  .
  "class"
  (type_identifier) @name
  (class_body)? @body) @definition.class
(class_declaration
  (modifiers)
  .
  "class"
  (type_identifier) @name
  (class_body)? @body) @definition.class
(object_declaration (type_identifier) @name (class_body)? @body) @definition.class
(companion_object (type_identifier) @name (class_body)? @body) @definition.class
(enum_entry (simple_identifier) @name (class_body)? @body) @definition.constant
(type_alias . (modifiers)? . "typealias" . (type_identifier) @name) @definition.type

(function_declaration
  (simple_identifier) @name
  (function_value_parameters)
  (function_body)? @body) @definition.function
(function_declaration
  receiver: (receiver_type) @receiver
  (simple_identifier) @name
  (function_value_parameters)
  (function_body)? @body) @definition.function
(secondary_constructor
  "constructor" @name
  (constructor_delegation_call)? @body
  "{"? @body) @definition.method
(property_declaration
  (variable_declaration (simple_identifier) @name)
  (getter) @body) @definition.method
((property_declaration (variable_declaration (simple_identifier) @name)) @definition.method
  .
  (getter) @body)
(property_declaration
  (variable_declaration (simple_identifier) @name)
  (object_literal (class_body) @body)) @definition.constant
(property_declaration
  (receiver_type) @receiver
  (variable_declaration (simple_identifier) @name)
  (getter) @body) @definition.method

((source_file (property_declaration
  (binding_pattern_kind) @_kind
  (variable_declaration (simple_identifier) @name)) @definition.constant)
  (#eq? @_kind "val"))
(companion_object (class_body (property_declaration
  (variable_declaration (simple_identifier) @name)) @definition.constant))
(object_declaration (class_body (property_declaration
  (variable_declaration (simple_identifier) @name)) @definition.constant))

[(line_comment) (multiline_comment)] @comment
