# SPDX-License-Identifier: Apache-2.0
"""A ClickHouse of a test's own, on loopback and in a directory of its own, and a wire to it that can fail."""
import http.client
import pathlib
import socket
import socketserver
import ssl
import subprocess
import threading
import time
import urllib.parse

CONFIG = """<yandex>
<logger><level>error</level><console>1</console></logger>
<http_port>{http}</http_port><tcp_port>{tcp}</tcp_port><listen_host>{listen}</listen_host>
<path>{folder}/data/</path><tmp_path>{folder}/tmp/</tmp_path><mark_cache_size>67108864</mark_cache_size>
<users_config>users.xml</users_config><default_profile>default</default_profile><default_database>default</default_database>
<remote_servers><all>{shards}</all></remote_servers>
{extra}</yandex>"""
SHARD = "<shard><replica><host>127.0.0.1</host><port>{}</port></replica></shard>"
USERS = """<yandex><profiles><default>{profile}</default></profiles><quotas><default></default></quotas><users>
<default><password></password><networks>{networks}</networks><profile>default</profile><quota>default</quota></default>
<flows><password>se'cret</password><networks><ip>127.0.0.1</ip></networks><profile>default</profile><quota>default</quota></flows>
</users></yandex>"""


def free_port():
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        return free.getsockname()[1]


class Server:
    def __init__(self, folder, tcp=None, cluster=(), profile="", listen="127.0.0.1", extra=""):
        """cluster: the TCP ports of all servers of the cluster "all"; this one's is `tcp`"""
        self.folder, self.port, self.process = pathlib.Path(folder), free_port(), None
        self.folder.mkdir()
        shards = "".join(SHARD.format(port) for port in cluster)
        (self.folder / "config.xml").write_text(CONFIG.format(
            http=self.port, tcp=tcp or free_port(), folder=folder, shards=shards, listen=listen, extra=extra))
        (self.folder / "users.xml").write_text(USERS.format(
            profile=profile, networks="<ip>127.0.0.1</ip>" if listen == "127.0.0.1" else "<ip>10.0.0.0/8</ip><ip>127.0.0.1</ip>"))
        self.start()

    def start(self):
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(["clickhouse-server", f"--config-file={self.folder}/config.xml"], stdout=log,
                                            stderr=log, cwd=self.folder)
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            try:
                return self.ask("SELECT 1")
            except OSError:
                time.sleep(0.05)
        raise RuntimeError("clickhouse-server does not start: " + (self.folder / "log").read_text()[-500:])

    def stop(self):
        self.process.kill()
        self.process.wait()

    def ask(self, sql, database="default"):
        """the rows of an answer, as tuples of texts"""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        connection.request("POST", f"/?database={database}&wait_end_of_query=1",
                           body=sql.encode())
        answer = connection.getresponse()
        text = answer.read().decode()
        if answer.status != 200:
            raise RuntimeError(f"{sql[:200]}: {text}")
        return [tuple(line.split("\t")) for line in text.splitlines()]

    def number(self, sql, database="default"):
        return int(self.ask(sql, database)[0][0])

    def make(self, database, schema):
        self.ask(f"CREATE DATABASE {database}")
        for statement in schema.split(";\n"):
            if statement.strip():
                self.ask(statement, database)

    def delete(self, table, condition, database):
        self.change(table, f"DELETE WHERE {condition}", database)

    def change(self, table, how, database):
        self.ask(f"ALTER TABLE {table} {how}", database)
        while self.number(f"SELECT count() FROM system.mutations WHERE database = '{database}' AND NOT is_done"):
            time.sleep(0.02)


class Wire(socketserver.ThreadingTCPServer):
    """between a collector and a server: `fault(statement, send)` is asked for each request that has one; send() has the server
    take it and gives its answer, and what fault returns goes back, nothing where the connection is to be cut"""
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, server, fault, certificate=None):
        wire = self

        class Handler(socketserver.StreamRequestHandler):
            def handle(self):
                try:
                    while wire.handle_request_of(self.rfile, self.wfile):
                        pass
                except OSError:
                    pass

        super().__init__(("127.0.0.1", 0), Handler)
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(*certificate)
            self.socket = context.wrap_socket(self.socket, server_side=True)
        self.server_port, self.fault, self.port = server.port, fault, self.server_address[1]
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def __exit__(self, *_):
        self.shutdown()
        self.server_close()

    def handle_error(self, request, client_address):
        """whoever does not trust our certificate says so on their side"""

    def handle_request_of(self, source, sink):
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            line = source.readline()
            if not line:
                return False
            head += line
        fields = {name.lower(): value.strip() for name, _, value in (line.partition(":") for line in head.decode().split("\r\n")[1:])}
        body = source.read(int(fields.get("content-length", 0)))
        path = head.split(b" ")[1].decode()
        statement = urllib.parse.parse_qs(urllib.parse.urlsplit(path).query).get("query", [""])[0]

        def send(path=path):
            connection = http.client.HTTPConnection("127.0.0.1", self.server_port, timeout=60)
            connection.request("POST", path, body=body, headers={name: value for name, value in fields.items()
                                                                 if name.startswith("x-clickhouse")})
            answer = connection.getresponse()
            return answer.status, answer.read()
        send.path = path
        answer = self.fault(statement, send)
        if answer is None:
            return False
        sink.write(b"HTTP/1.1 %d X\r\nContent-Length: %d\r\n\r\n" % (answer[0], len(answer[1])) + answer[1])
        return True
