#!/usr/bin/python3
"""smtp_server.py listening on the port SMTP_PORT names: a server that comes
back where the mails were sent before it went away."""
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import smtp_server  # noqa: E402

smtp_server.free_port = lambda: int(os.environ["SMTP_PORT"])
smtp_server.main()
