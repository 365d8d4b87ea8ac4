# tools
