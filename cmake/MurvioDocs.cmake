# Reference manual: filled in with the documentation.
