"""Small rules about paths, languages and text that every other package may use."""
