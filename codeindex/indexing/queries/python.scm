(module . (string) @doc.module)
(module . (comment)+ . (string) @doc.module)

(class_definition name: (identifier) @name (comment)? @body body: (block . (string)? @doc) @body) @definition.class
(function_definition name: (identifier) @name (comment)? @body body: (block . (string)? @doc) @body) @definition.function
(type_alias_statement left: (type (identifier) @name)) @definition.type

((module (assignment left: (identifier) @name) @definition.constant)
  (#not-match? @name "^__"))
((module (assignment left: (identifier) @name) @definition.constant . (string) @doc)
  (#not-match? @name "^__"))
((class_definition body: (block (assignment left: (identifier) @name) @definition.constant))
  (#match? @name "^_*[A-Z][A-Z0-9_]*$"))

(comment) @comment
(decorator) @decoration
