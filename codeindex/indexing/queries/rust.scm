(source_file (line_comment (inner_doc_comment_marker)) @doc.module)
(source_file (block_comment (inner_doc_comment_marker)) @doc.module)

(mod_item name: (identifier) @name body: (_)) @scope
(impl_item type: (_) @name body: (_)) @scope.class

(struct_item name: (type_identifier) @name body: (field_declaration_list)? @body) @definition.struct
(union_item name: (type_identifier) @name body: (_) @body) @definition.union
(enum_item name: (type_identifier) @name body: (_) @body) @definition.enum
(enum_variant name: (identifier) @name) @definition.constant
(trait_item name: (type_identifier) @name body: (_) @body) @definition.trait
(type_item name: (type_identifier) @name) @definition.type
(associated_type name: (type_identifier) @name) @definition.type

(function_item name: (identifier) @name body: (_) @body) @definition.function
(function_signature_item name: (identifier) @name) @definition.function
(macro_definition name: (identifier) @name (macro_rule)) @definition.macro

((source_file (macro_invocation (token_tree) @nested))
  (#match? @nested "\\b(fn|struct|enum|trait|impl|const|static|type)\\s"))
((declaration_list (macro_invocation (token_tree) @nested))
  (#match? @nested "\\b(fn|struct|enum|trait|impl|const|static|type)\\s"))

(const_item name: (identifier) @name) @definition.constant
(static_item name: (identifier) @name) @definition.constant

[(line_comment) (block_comment)] @comment
(attribute_item) @decoration
