(function_declaration
  name: (identifier) @name
  (comment)? @body
  body: (_)? @body
  "end" @body) @definition.function
((function_declaration
  name: (dot_index_expression table: (identifier) @_module field: (identifier) @name)
  (comment)? @body
  body: (_)? @body
  "end" @body) @definition.function
  (#match? @_module "^_?M$"))
((function_declaration
  name: (dot_index_expression table: (_) @receiver field: (identifier) @name)
  (comment)? @body
  body: (_)? @body
  "end" @body) @definition.function
  (#not-match? @receiver "^_?M$"))
((function_declaration
  name: (method_index_expression table: (identifier) @_module method: (identifier) @name)
  (comment)? @body
  body: (_)? @body
  "end" @body) @definition.method
  (#match? @_module "^_?M$"))
((function_declaration
  name: (method_index_expression table: (_) @receiver method: (identifier) @name)
  (comment)? @body
  body: (_)? @body
  "end" @body) @definition.method
  (#not-match? @receiver "^_?M$"))

(assignment_statement
  (variable_list . name: (identifier) @name .)
  (expression_list . value: (function_definition body: (_)? @body "end" @body)))
  @definition.function
((assignment_statement
  (variable_list . name: (dot_index_expression
    table: (_) @_module
    field: (identifier) @name) .)
  (expression_list . value: (function_definition body: (_)? @body "end" @body)))
  @definition.function
  (#match? @_module "^_?M$"))
((assignment_statement
  (variable_list . name: (dot_index_expression
    table: (_) @receiver
    field: (identifier) @name) .)
  (expression_list . value: (function_definition body: (_)? @body "end" @body)))
  @definition.function
  (#not-match? @receiver "^_?M$"))
(field
  name: (identifier) @name
  value: (function_definition body: (_)? @body "end" @body)) @definition.function

((chunk (_ (assignment_statement (variable_list name: (identifier) @name)) @definition.constant))
  (#match? @name "^[A-Z][A-Z0-9_]+$"))
((chunk (assignment_statement (variable_list name: (identifier) @name)) @definition.constant)
  (#match? @name "^[A-Z][A-Z0-9_]+$"))

(comment) @comment
