// The shared library takes all its code from the archive; a target needs one source of its own.
