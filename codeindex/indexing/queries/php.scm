(namespace_definition name: (_) @package !body)
(namespace_definition name: (_) @name body: (_)) @scope

(class_declaration name: (name) @name body: (_) @body) @definition.class
(interface_declaration name: (name) @name body: (_) @body) @definition.interface
(trait_declaration name: (name) @name body: (_) @body) @definition.trait
(enum_declaration name: (name) @name body: (_) @body) @definition.enum
(enum_case name: (name) @name) @definition.constant

(method_declaration name: (name) @name body: (_)? @body) @definition.method
(function_definition name: (name) @name body: (_) @body) @definition.function

(const_declaration (const_element . (name) @name)) @definition.constant
((expression_statement
  (function_call_expression
    function: (name) @_define
    arguments: (arguments . (argument (string (string_content) @name))))) @definition.constant
  (#eq? @_define "define"))

[(comment) (php_tag)] @comment
