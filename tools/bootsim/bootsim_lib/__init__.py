"""Board sandbox for libbootinit: board roots, their description, the bwrap sandbox, boot logs."""
