(preproc_def name: (identifier) @name value: (_)) @definition.constant
(preproc_function_def name: (identifier) @name) @definition.macro

(struct_specifier name: (type_identifier) @name body: (_) @body) @definition.struct
(union_specifier name: (type_identifier) @name body: (_) @body) @definition.union
(enum_specifier name: (type_identifier) @name body: (_) @body) @definition.enum
(enumerator name: (identifier) @name) @definition.constant

(type_definition
  type: (struct_specifier !name body: (_) @body)
  declarator: (type_identifier) @name) @definition.struct
(type_definition
  type: (union_specifier !name body: (_) @body)
  declarator: (type_identifier) @name) @definition.union
(type_definition
  type: (enum_specifier !name body: (_) @body)
  declarator: (type_identifier) @name) @definition.enum
(type_definition
  type: [(primitive_type) (sized_type_specifier) (type_identifier)
         (struct_specifier !body) (union_specifier !body) (enum_specifier !body)]
  declarator: [
    (type_identifier) @name
    (pointer_declarator declarator: (type_identifier) @name)
    (array_declarator declarator: (type_identifier) @name)
    (function_declarator declarator: (parenthesized_declarator
      (pointer_declarator declarator: (type_identifier) @name)))
  ]) @definition.type
((type_definition
  type: (_ name: (type_identifier) @_tag body: (_))
  declarator: (type_identifier) @name) @definition.type
  (#not-eq? @_tag @name))

(function_definition
  declarator: [
    (function_declarator declarator: (identifier) @name)
    (pointer_declarator declarator: (function_declarator declarator: (identifier) @name))
    (pointer_declarator declarator: (pointer_declarator
      declarator: (function_declarator declarator: (identifier) @name)))
  ]
  body: (_) @body) @definition.function
(declaration
  declarator: [
    (function_declarator declarator: (identifier) @name)
    (pointer_declarator declarator: (function_declarator declarator: (identifier) @name))
    (pointer_declarator declarator: (pointer_declarator
      declarator: (function_declarator declarator: (identifier) @name)))
  ]) @definition.function

((declaration
  (type_qualifier) @_qualifier
  declarator: (init_declarator declarator: [
    (identifier) @name
    (array_declarator declarator: (identifier) @name)
    (pointer_declarator declarator: (identifier) @name)
    (pointer_declarator declarator: (array_declarator declarator: (identifier) @name))
  ])) @definition.constant
  (#eq? @_qualifier "const"))

(comment) @comment
