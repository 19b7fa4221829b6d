#error "a header of the host took the place of one of the library"
