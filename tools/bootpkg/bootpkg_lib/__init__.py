"""bootpkg's modules: the command line, the package container, building (with deliberate
faults), the signature file list, signing, reading and checking packages, the test PKI and
the openssl runner."""
