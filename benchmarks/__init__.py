"""Programs that measure `codeindex` on the sources of published packages."""
