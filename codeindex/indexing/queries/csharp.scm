(file_scoped_namespace_declaration name: (_) @package)
(namespace_declaration name: (_) @name body: (_)) @scope

(class_declaration name: (identifier) @name body: (_)? @body) @definition.class
(record_declaration name: (identifier) @name body: (_)? @body) @definition.class
(struct_declaration name: (identifier) @name body: (_)? @body) @definition.struct
(interface_declaration name: (identifier) @name body: (_)? @body) @definition.interface
(enum_declaration name: (identifier) @name body: (_) @body) @definition.enum
(enum_member_declaration name: (identifier) @name) @definition.constant
(delegate_declaration name: (identifier) @name) @definition.type

(method_declaration name: (identifier) @name body: (_)? @body) @definition.method
(constructor_declaration
  name: (identifier) @name
  (constructor_initializer)? @body
  body: (_)? @body) @definition.method
(operator_declaration operator: _ @name body: (_)? @body) @definition.method
(property_declaration
  name: (identifier) @name
  [(accessor_list) (arrow_expression_clause)] @body) @definition.method
(local_function_statement name: (identifier) @name body: (_) @body) @definition.function

((field_declaration
  (modifier) @_modifier
  (variable_declaration (variable_declarator name: (identifier) @name))) @definition.constant
  (#eq? @_modifier "const"))
((field_declaration
  (modifier) @_static
  (modifier) @_readonly
  (variable_declaration (variable_declarator name: (identifier) @name))) @definition.constant
  (#eq? @_static "static")
  (#eq? @_readonly "readonly"))

(comment) @comment
(preproc_pragma) @decoration
(preproc_if "#if" @decoration)
