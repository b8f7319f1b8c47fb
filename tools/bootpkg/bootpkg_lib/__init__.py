"""bootpkg's modules: the command line, the test PKI, and the openssl runner."""
