(package_declaration [(scoped_identifier) (identifier)] @package)

(class_declaration name: (identifier) @name body: (_) @body) @definition.class
(record_declaration name: (identifier) @name body: (_) @body) @definition.class
(interface_declaration name: (identifier) @name body: (_) @body) @definition.interface
(annotation_type_declaration name: (identifier) @name body: (_) @body) @definition.interface
(enum_declaration name: (identifier) @name body: (_) @body) @definition.enum
(enum_constant name: (identifier) @name body: (_)? @body) @definition.constant

(method_declaration name: (identifier) @name body: (_)? @body) @definition.method
(annotation_type_element_declaration name: (identifier) @name) @definition.method
(constructor_declaration name: (identifier) @name body: (_) @body) @definition.method
(compact_constructor_declaration name: (identifier) @name body: (_) @body) @definition.method

((field_declaration
  (modifiers) @_modifiers
  declarator: (variable_declarator
    name: (identifier) @name
    value: (object_creation_expression (class_body) @body)?)) @definition.constant
  (#match? @_modifiers "\\bstatic\\b")
  (#match? @_modifiers "\\bfinal\\b"))
(constant_declaration declarator: (variable_declarator name: (identifier) @name)) @definition.constant

[(line_comment) (block_comment)] @comment
