(class_declaration name: (identifier) @name body: (_) @body) @definition.class
(method_definition name: (_) @name body: (_) @body) @definition.function
(field_definition
  property: (_) @name
  value: [(arrow_function body: (_) @body) (function_expression body: (_) @body)])
  @definition.function

(function_declaration name: (identifier) @name body: (_) @body) @definition.function
(generator_function_declaration name: (identifier) @name body: (_) @body) @definition.function
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
  right: [
    (arrow_function body: (_) @body)
    (function_expression body: (_) @body)
    (generator_function body: (_) @body)
  ]) @definition.function
(assignment_expression
  left: (member_expression object: (_) @receiver property: (property_identifier) @name)
  right: (class body: (_) @body)) @definition.class
(pair
  key: (property_identifier) @name
  value: [(arrow_function body: (_) @body) (function_expression body: (_) @body)])
  @definition.function

([
  (program (_ (variable_declarator name: (identifier) @name value: (_) @_value)
    @definition.constant))
  (program (export_statement (_ (variable_declarator name: (identifier) @name value: (_) @_value)
    @definition.constant)))
]
  (#not-match? @_value "^require\\b"))
(program (_ (variable_declarator name: (identifier) @name value: (object) @body)
  @definition.constant))
(program (export_statement (_ (variable_declarator name: (identifier) @name value: (object) @body)
  @definition.constant)))

(comment) @comment
(decorator) @decoration
