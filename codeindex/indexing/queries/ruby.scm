(module name: (_) @name (comment)? @body body: (_)? @body "end" @body) @definition.class
(class
  name: (_) @name
  (comment)? @body
  body: (_)? @body
  "end" @body) @definition.class
(assignment
  left: (constant) @name
  right: (call
    method: (identifier) @_new
    block: (_) @body)
  (#any-of? @_new "new" "define")) @definition.class

(method
  name: (_) @name
  (comment)? @body
  body: (_)? @body
  "end"? @body) @definition.function
(singleton_method
  object: (self)
  name: (_) @name
  (comment)? @body
  body: (_)? @body
  "end"? @body) @definition.method
(singleton_method
  object: [(identifier) (constant)] @receiver
  name: (_) @name
  (comment)? @body
  body: (_)? @body
  "end"? @body) @definition.method

(assignment left: (constant) @name) @definition.constant
(assignment
  left: (scope_resolution scope: (_) @receiver name: (constant) @name)) @definition.constant

(comment) @comment
