"""The FTP server of a peer main board: pyftpdlib (Debian's python3-pyftpdlib) serving its root.

Every account of the peer's [ftp] users logs in with its own name as password and has the
peer's board root as home, read only: RETR /opt/x sends PEERROOT/opt/x. Passive data
connections listen on the address of the control connection, which is the peer's address.
"""
import logging

# Permissions of pyftpdlib: change directory, list, retrieve; nothing that writes.
READ_ONLY = "elr"


def serve(name, address, port, users, home, ready):
    """Listen, call READY, serve until the process ends."""
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler
    from pyftpdlib.log import config_logging
    from pyftpdlib.servers import FTPServer

    authorizer = DummyAuthorizer()
    for user in users:
        authorizer.add_user(user, user, home, perm=READ_ONLY)
    handler = type("PeerHandler", (FTPHandler,),
                   {"authorizer": authorizer, "banner": f"bootsim {name} ready"})
    config_logging(level=logging.INFO)
    server = FTPServer((address, port), handler)
    ready()
    server.serve_forever(handle_exit=False)
