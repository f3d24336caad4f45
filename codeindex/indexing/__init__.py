"""From a folder of source files to an up-to-date index: discovery, extraction and refresh."""
