((call
  target: (identifier) @_define
  (arguments . (alias) @name)
  (do_block) @body) @definition.class
  (#eq? @_define "defmodule"))
((call
  target: (identifier) @_define
  (arguments . (alias) @name)
  (do_block (unary_operator operand: (call
    target: (identifier) @_doc
    (arguments [(string) (sigil)] @doc)))) @body) @definition.class
  (#eq? @_define "defmodule")
  (#eq? @_doc "moduledoc"))
((call
  target: (identifier) @_define
  (arguments . (alias) @name)
  (do_block) @body) @definition.interface
  (#eq? @_define "defprotocol"))
((call
  target: (identifier) @_define
  (arguments . (alias) @name)
  (do_block)) @scope.class
  (#eq? @_define "defimpl"))

((call
  target: (identifier) @_define
  (arguments
    . [
      (identifier) @name
      (call target: (identifier) @name)
      (binary_operator left: (identifier) operator: _ @name)
      (binary_operator left: (call target: (identifier) @name) operator: "when")
    ]
    (keywords)? @body)
  (do_block)? @body) @definition.function
  (#any-of? @_define "def" "defp" "defdelegate" "defguard" "defguardp"))
((call
  target: (identifier) @_define
  (arguments
    . [
      (identifier) @name
      (call target: (identifier) @name)
      (binary_operator left: (call target: (identifier) @name) operator: "when")
    ]
    (keywords)? @body)
  (do_block)? @body) @definition.macro
  (#any-of? @_define "defmacro" "defmacrop"))

((unary_operator operand: (call
  target: (identifier) @_define
  (arguments (binary_operator
    left: [(identifier) @name (call target: (identifier) @name)]
    operator: "::"))) @definition.type)
  (#match? @_define "^(type|typep|opaque)$"))
((unary_operator operand: (call
  target: (identifier) @_define
  (arguments (binary_operator
    left: [(identifier) @name (call target: (identifier) @name)]
    operator: "::"))) @definition.function)
  (#match? @_define "^(macro)?callback$"))
((do_block (unary_operator
  operand: (call target: (identifier) @name (arguments)) @definition.constant))
  (#not-match? @name "^(((module|type|short)?doc)|spec|type|typep|opaque|(macro)?callback)$")
  (#not-match? @name "^(optional_callbacks|impl|behaviour|derive|enforce_keys|compile|dialyzer)$")
  (#not-match? @name "^(before_compile|after_compile|on_definition|on_load|deprecated|since)$")
  (#not-match? @name "^(external_resource|vsn|tag|moduletag|describetag|fallback_to_any|file)$"))

(comment) @comment
((unary_operator operand: (call
  target: (identifier) @_doc
  (arguments [(string) (sigil)] @doc))) @comment
  (#any-of? @_doc "doc" "typedoc"))
((unary_operator operand: (call target: (identifier) @_tag)) @decoration
  (#any-of? @_tag "spec" "impl" "deprecated" "dialyzer" "since" "tag" "doc" "compile"))
