(package_clause (package_identifier) @package)

(function_declaration name: (identifier) @name body: (_)? @body) @definition.function
(method_declaration
  receiver: (parameter_list (parameter_declaration type: (_) @receiver))
  name: (field_identifier) @name
  body: (_)? @body) @definition.method
(method_elem name: (field_identifier) @name) @definition.method

(type_spec
  name: (type_identifier) @name
  type: (struct_type (field_declaration_list) @body)) @definition.struct
(type_spec
  name: (type_identifier) @name
  type: (interface_type "{" @body)) @definition.interface
(type_spec
  name: (type_identifier) @name
  type: [(type_identifier) (qualified_type) (pointer_type) (array_type) (slice_type) (map_type)
         (channel_type) (function_type) (generic_type) (parenthesized_type)]) @definition.type
(type_alias name: (type_identifier) @name) @definition.type

(source_file (const_declaration (const_spec (identifier) @name) @definition.constant))
((source_file (var_declaration (var_spec (identifier) @name) @definition.constant))
  (#not-eq? @name "_"))
((source_file
  (var_declaration (var_spec_list (var_spec (identifier) @name) @definition.constant)))
  (#not-eq? @name "_"))

(comment) @comment
