"""nginx in the sandbox, on a port of its own."""

import jxtest

PORT = 6371
PROGRAM = jxtest.SOURCE / "build/nginx/usr/sbin/nginx"  # ./jx setup unpacks it there


def start_nginx(case, server):
    """Starts nginx with the directives `server` and waits until it accepts; its files lie in the returned folder."""
    folder = case.root / "nginx"
    folder.mkdir()
    temporary = " ".join(f"{name}_temp_path {folder}/{name};"
                         for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
    (folder / "conf").write_text(
        f"daemon off; user root; pid {folder}/pid; error_log {folder}/log; events {{}}\n"
        f"http {{ access_log off; {temporary}\n"
        f"  server {{ listen 127.0.0.1:{PORT}; root {folder}; {server} }} }}\n")
    case.start(PROGRAM, "-c", folder / "conf", "-e", folder / "log", "-p", folder)
    jxtest.wait_until(lambda: jxtest.can_connect(PORT), what="nginx accepts")
    return folder
