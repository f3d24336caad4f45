(namespace_definition name: (_) @name body: (_)) @scope

(preproc_def name: (identifier) @name value: (_)) @definition.constant
(preproc_function_def name: (identifier) @name) @definition.macro

(class_specifier name: (_) @name body: (_) @body) @definition.class
(struct_specifier name: (_) @name body: (_) @body) @definition.struct
(union_specifier name: (_) @name body: (_) @body) @definition.union
(enum_specifier name: (_) @name body: (_) @body) @definition.enum
(enumerator name: (identifier) @name) @definition.constant

(alias_declaration name: (type_identifier) @name) @definition.type
(concept_definition name: (identifier) @name) @definition.type
(type_definition
  type: (struct_specifier !name body: (_) @body)
  declarator: (type_identifier) @name) @definition.struct
(type_definition
  type: (enum_specifier !name body: (_) @body)
  declarator: (type_identifier) @name) @definition.enum
(type_definition
  type: [(primitive_type) (sized_type_specifier) (type_identifier) (qualified_identifier)
         (template_type) (struct_specifier !body) (enum_specifier !body)]
  declarator: [
    (type_identifier) @name
    (pointer_declarator declarator: (type_identifier) @name)
    (function_declarator declarator: (parenthesized_declarator
      (pointer_declarator declarator: (type_identifier) @name)))
  ]) @definition.type

(function_definition
  type: (_)
  declarator: [
    (function_declarator declarator: (_) @name)
    (pointer_declarator declarator: (function_declarator declarator: (_) @name))
    (reference_declarator (function_declarator declarator: (_) @name))
  ]
  body: (_)? @body) @definition.function
(function_definition
  !type
  declarator: (function_declarator
    declarator: [(qualified_identifier) (destructor_name) (operator_name)] @name)
  (field_initializer_list)? @body
  body: (_)? @body) @definition.function
(function_definition
  !type
  declarator: (function_declarator declarator: (identifier) @name)
  (field_initializer_list)? @body
  body: (_)? @body) @definition.constructor
(declaration
  type: (_)
  declarator: [
    (function_declarator declarator: [(identifier) (operator_name)] @name)
    (pointer_declarator declarator: (function_declarator declarator: (identifier) @name))
    (reference_declarator (function_declarator declarator: [(identifier) (operator_name)] @name))
  ]) @definition.function
(declaration
  !type
  declarator: (function_declarator declarator: (destructor_name) @name)) @definition.function
(declaration
  !type
  declarator: (function_declarator declarator: (identifier) @name)) @definition.constructor
(field_declaration
  declarator: [
    (function_declarator declarator: [(field_identifier) (operator_name)] @name)
    (pointer_declarator declarator: (function_declarator declarator: (field_identifier) @name))
    (reference_declarator
      (function_declarator declarator: [(field_identifier) (operator_name)] @name))
  ]) @definition.function

((declaration
  (type_qualifier) @_qualifier
  declarator: (init_declarator declarator: [
    (identifier) @name
    (array_declarator declarator: (identifier) @name)
    (pointer_declarator declarator: (identifier) @name)
  ])) @definition.constant
  (#match? @_qualifier "^const"))
((field_declaration
  (type_qualifier) @_qualifier
  declarator: [
    (field_identifier) @name
    (array_declarator declarator: (field_identifier) @name)
  ]
  default_value: (_)) @definition.constant
  (#match? @_qualifier "^const"))

(comment) @comment
(template_declaration parameters: (_) @decoration)
(template_declaration (requires_clause) @decoration)
