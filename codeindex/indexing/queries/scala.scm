(package_clause name: (_) @package !body)
(package_clause name: (_) @name body: (_)) @scope
(package_object name: (_) @name body: (_)) @scope

(class_definition name: (_) @name body: (_)? @body) @definition.class
(object_definition name: (_) @name body: (_)? @body) @definition.class
(trait_definition name: (_) @name body: (_)? @body) @definition.trait
(enum_definition name: (_) @name body: (_) @body) @definition.enum
(simple_enum_case name: (_) @name) @definition.constant
(full_enum_case name: (_) @name) @definition.constant
(type_definition name: (_) @name) @definition.type

(function_definition name: (_) @name body: (_) @body) @definition.function
(function_declaration name: (_) @name) @definition.function
(given_definition name: (_) @name body: (_)? @body) @definition.constant

(object_definition
  body: (_ (val_definition pattern: (identifier) @name) @definition.constant))
(package_object
  body: (_ (val_definition pattern: (identifier) @name) @definition.constant))
(compilation_unit (val_definition pattern: (identifier) @name) @definition.constant)

[(comment) (block_comment)] @comment
