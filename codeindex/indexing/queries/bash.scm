(function_definition name: (word) @name body: (_) @body) @definition.function

((program (declaration_command
  "readonly"
  (variable_assignment name: (variable_name) @name)) @definition.constant))
((program (declaration_command
  (word) @_flags
  (variable_assignment name: (variable_name) @name)) @definition.constant)
  (#match? @_flags "^-[a-zA-Z]*r"))

(comment) @comment
