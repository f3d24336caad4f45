(internal_module name: (_) @name body: (_)) @scope

(class_declaration name: (type_identifier) @name body: (_) @body) @definition.class
(abstract_class_declaration name: (type_identifier) @name body: (_) @body) @definition.class
(interface_declaration name: (type_identifier) @name body: (_) @body) @definition.interface
(enum_declaration name: (identifier) @name body: (_) @body) @definition.enum
(enum_body name: (property_identifier) @name @definition.constant)
(enum_assignment name: (property_identifier) @name) @definition.constant
(type_alias_declaration name: (type_identifier) @name) @definition.type

(method_definition name: (_) @name body: (_) @body) @definition.function
(method_signature name: (_) @name) @definition.function
(abstract_method_signature name: (_) @name) @definition.function
(public_field_definition
  name: (_) @name
  value: [(arrow_function body: (_) @body) (function_expression body: (_) @body)])
  @definition.function

(function_declaration name: (identifier) @name body: (_) @body) @definition.function
(generator_function_declaration name: (identifier) @name body: (_) @body) @definition.function
(function_signature name: (identifier) @name) @definition.function
(variable_declarator
  name: (identifier) @name
  value: [
    (arrow_function body: (_) @body)
    (function_expression body: (_) @body)
    (generator_function body: (_) @body)
  ]) @definition.function
(variable_declarator name: (identifier) @name value: (class body: (_) @body)) @definition.class

(assignment_expression
  left: (member_expression object: (_) @receiver property: (property_identifier) @name)
  right: [(arrow_function body: (_) @body) (function_expression body: (_) @body)])
  @definition.function
(pair
  key: (property_identifier) @name
  value: [(arrow_function body: (_) @body) (function_expression body: (_) @body)])
  @definition.function

([
  (program (_ (variable_declarator name: (identifier) @name) @definition.constant))
  (program (export_statement (_ (variable_declarator name: (identifier) @name)
    @definition.constant)))
  (program (ambient_declaration (_ (variable_declarator name: (identifier) @name)
    @definition.constant)))
  (internal_module body: (_ (export_statement (_ (variable_declarator name: (identifier) @name)
    @definition.constant))))
])
(program (_ (variable_declarator name: (identifier) @name value: (object) @body)
  @definition.constant))
(program (export_statement (_ (variable_declarator name: (identifier) @name value: (object) @body)
  @definition.constant)))

(comment) @comment
(decorator) @decoration
