"""What tools/check-docs looks for in the documents, a module for each kind."""
