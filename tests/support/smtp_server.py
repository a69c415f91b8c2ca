#!/usr/bin/python3
"""A loopback SMTP server for the mail tests (Debian's python3-aiosmtpd).

Every message received is unpacked into OUT/msg-N/: envelope.txt (MAIL FROM
and RCPT TO lines), raw.eml (as it came), headers.txt (decoded), body.txt,
body-type.txt and each attachment under its own (decoded) file name.
The port is written to PORT_FILE once the server listens.

  smtp_server.py OUT PORT_FILE MODE --cert C --key K --user U --password P
                 [--stop-after N]
MODE: plain, ssl (TLS from the first byte) or starttls (TLS required); login
is required. With --stop-after N the server goes away in the middle of
message N + 1.
"""
import argparse
import email
import email.policy
import os
import signal
import socket
import ssl
import time

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult, LoginPassword


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def write(folder, name, data):
    with open(os.path.join(folder, name), "wb" if isinstance(data, bytes) else "w") as f:
        f.write(data)


class Handler:
    def __init__(self, out, stop_after):
        self.out = out
        self.count = 0
        self.stop_after = stop_after

    async def handle_DATA(self, server, session, envelope):
        if self.stop_after and self.count >= self.stop_after:
            os._exit(0)  # gone in the middle of a message
        self.count += 1
        folder = os.path.join(self.out, "msg-%d" % self.count)
        os.makedirs(folder)
        write(folder, "envelope.txt", "".join(["MAIL FROM: %s\n" % envelope.mail_from] +
                                              ["RCPT TO: %s\n" % rcpt for rcpt in envelope.rcpt_tos]))
        write(folder, "raw.eml", envelope.original_content)
        message = email.message_from_bytes(envelope.content, policy=email.policy.default)
        write(folder, "headers.txt", "".join("%s: %s\n" % item for item in message.items()))
        for part in message.walk():
            if part.is_multipart():
                continue
            name = part.get_filename()
            if name:
                write(folder, os.path.basename(name), part.get_payload(decode=True))
            else:
                text = part.get_payload(decode=True).decode(part.get_content_charset() or "ascii")
                write(folder, "body.txt", text.encode("utf-8"))
                write(folder, "body-type.txt", part.get_content_type())
        return "250 OK"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("out")
    parser.add_argument("port_file")
    parser.add_argument("mode", choices=["plain", "ssl", "starttls"])
    for required in ("--cert", "--key", "--user", "--password"):
        parser.add_argument(required, required=True)
    parser.add_argument("--stop-after", type=int, default=0)
    args = parser.parse_args()

    def authenticator(server, session, envelope, mechanism, auth_data):
        ok = (isinstance(auth_data, LoginPassword) and auth_data.login.decode() == args.user
              and auth_data.password.decode() == args.password)
        return AuthResult(success=ok, handled=False)

    # TLS from the first byte is TLS too, though the server only counts STARTTLS.
    options = {"authenticator": authenticator, "auth_required": True, "auth_require_tls": args.mode == "starttls"}
    context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    context.load_cert_chain(args.cert, args.key)
    if args.mode == "ssl":
        options["ssl_context"] = context
    elif args.mode == "starttls":
        options["tls_context"] = context
        options["require_starttls"] = True
    port = free_port()
    controller = Controller(Handler(args.out, args.stop_after), hostname="127.0.0.1", port=port,
                            ready_timeout=10, **options)
    controller.start()
    with open(args.port_file + ".tmp", "w") as f:
        f.write(str(port))
    os.rename(args.port_file + ".tmp", args.port_file)
    signal.signal(signal.SIGTERM, lambda *_: os._exit(0))
    while True:
        time.sleep(1)


if __name__ == "__main__":
    main()
