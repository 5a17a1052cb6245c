// Nothing of its own: the library consists of what it is linked with.
