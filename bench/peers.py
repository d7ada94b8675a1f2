"""What people move files with today: each a throwaway server on 127.0.0.1 with
files of its own in a directory, and its client called as a user would. Every
one moves all files of a call over one connection."""
import ftplib
import getpass
import os
import shutil
import socket
import subprocess
import sys
import time

from common import MIB, stop

NGINX = """daemon off; worker_processes 1; pid {root}/nginx.pid; error_log {root}/nginx.log;
{user} events {{ worker_connections 64; }}
http {{
  access_log off; sendfile on; tcp_nopush on; keepalive_requests 1000000;
  client_max_body_size 0; client_body_buffer_size 1m; client_body_temp_path {root}/nginx.body;
  proxy_temp_path {root}/nginx.t; fastcgi_temp_path {root}/nginx.t;
  uwsgi_temp_path {root}/nginx.t; scgi_temp_path {root}/nginx.t;
  server {{ listen 127.0.0.1:{port}; root {store}; dav_methods PUT; create_full_put_path on; }}
}}
"""

VSFTPD = """listen=YES
listen_address=127.0.0.1
listen_port={port}
background=NO
run_as_launching_user=YES
anonymous_enable=YES
no_anon_password=YES
anon_root={store}
allow_writeable_chroot=YES
write_enable=YES
anon_upload_enable=YES
anon_mkdir_write_enable=YES
anon_other_write_enable=YES
anon_world_readable_only=NO
anon_umask=022
use_sendfile=YES
seccomp_sandbox=NO
xferlog_enable=NO
connect_from_port_20=NO
secure_chroot_dir={root}
"""

RSYNCD = """use chroot = no
{user}
[store]
path = {store}
read only = no
"""

SSHD = """ListenAddress 127.0.0.1
Port {port}
HostKey {root}/host.key
AuthorizedKeysFile {root}/user.key.pub
StrictModes no
UsePAM no
PermitRootLogin yes
PidFile none
Subsystem sftp internal-sftp
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def call(command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def files_of(directory):
    return sorted(entry.name for entry in os.scandir(directory))


class Peer:
    """A server that runs until close(); put and get move a whole directory."""
    name, programs, asks_per_file = "", (), False

    def __init__(self, root):
        self.root = os.path.join(root, self.name.replace(" ", "-"))
        self.store = os.path.join(self.root, "store")
        os.makedirs(self.store)
        self.door = self.port = free_port()  # clients knock at the door
        self.process = subprocess.Popen(self.serve(), stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        end = time.monotonic() + 10
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return
            except OSError:
                if self.process.poll() is not None or time.monotonic() > end:
                    stop(self.process)
                    sys.exit(f"{self.name}: its server does not start")
                time.sleep(0.05)

    def configure(self, text, **words):
        path = os.path.join(self.root, "server.conf")
        with open(path, "w", encoding="utf-8") as out:
            out.write(text.format(root=self.root, store=self.store, port=self.port, **words))
        return path

    def close(self):
        stop(self.process)

    @classmethod
    def is_installed(cls):
        path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
        return all(shutil.which(program, path=path) for program in cls.programs)


class Rsync(Peer):
    name, programs, options = "rsync daemon", ("rsync",), []

    def serve(self):
        user = "uid = root\ngid = root" if os.getuid() == 0 else ""
        return ["rsync", "--daemon", "--no-detach", "--address=127.0.0.1", f"--port={self.port}",
                f"--config={self.configure(RSYNCD, user=user)}"]

    def move(self, source, target):
        call(["rsync", "-a", "--whole-file", *self.options, source, target])

    def url(self, case):
        return f"rsync://127.0.0.1:{self.door}/store/{case}/"

    def put(self, source, case):
        self.move(source + "/", self.url(case))

    def get(self, case, target):
        self.move(self.url(case), target + "/")


class FlushingRsync(Rsync):
    name, options = "rsync --fsync", ["--fsync"]


class Curl(Peer):
    """One curl, one connection, all files."""
    scheme, options = "", []

    def transfer(self, pairs):
        config = os.path.join(self.root, "curl.conf")
        with open(config, "w", encoding="utf-8") as out:
            out.writelines(f'url = "{url}"\n{option} = "{path}"\n' for option, path, url in pairs)
        call(["curl", "--silent", "--show-error", "--fail", *self.options, "--config", config])

    def url(self, case, name):
        return f"{self.scheme}://127.0.0.1:{self.port}/{case}/{name}"

    def put(self, source, case):
        self.transfer(("upload-file", f"{source}/{name}", self.url(case, name))
                      for name in files_of(source))

    def get(self, case, target):
        os.makedirs(target)
        self.transfer(("output", f"{target}/{name}", self.url(case, name))
                      for name in files_of(os.path.join(self.store, case)))


class Ftp(Curl):
    """Curl moves one file well; between small ones it may sleep for a second
    (seen with 7.88). Many files go over one connection of ftplib's."""
    name, programs, scheme, asks_per_file = "FTP (vsftpd)", ("vsftpd", "curl"), "ftp", True
    options = ["--ftp-create-dirs"]

    def serve(self):
        return ["/usr/sbin/vsftpd", self.configure(VSFTPD)]

    def connect(self, case):
        ftp = ftplib.FTP()
        ftp.connect("127.0.0.1", self.port)
        ftp.login()
        if not os.path.isdir(os.path.join(self.store, case)):
            ftp.mkd(case)
        ftp.cwd(case)
        ftp.voidcmd("TYPE I")
        return ftp

    def put(self, source, case):
        names = files_of(source)
        if len(names) == 1:
            return super().put(source, case)
        with self.connect(case) as ftp:
            for name in names:
                with ftp.transfercmd("STOR " + name) as data, \
                        open(os.path.join(source, name), "rb") as file:
                    data.sendfile(file)
                ftp.voidresp()

    def get(self, case, target):
        names = files_of(os.path.join(self.store, case))
        if len(names) == 1:
            return super().get(case, target)
        os.makedirs(target)
        block = memoryview(bytearray(MIB))
        with self.connect(case) as ftp:
            for name in names:
                with ftp.transfercmd("RETR " + name) as data, \
                        open(os.path.join(target, name), "wb", buffering=0) as file:
                    while size := data.recv_into(block):
                        file.write(block[:size])
                ftp.voidresp()


class WebDav(Curl):
    name, programs, scheme, asks_per_file = "WebDAV (nginx)", ("nginx", "curl"), "http", True
    options = ["--header", "Expect:"]

    def serve(self):
        user = "user root;" if os.getuid() == 0 else ""
        return ["/usr/sbin/nginx", "-c", self.configure(NGINX, user=user)]


class Sftp(Peer):
    name, programs, cipher = "sftp", ("sshd", "sftp", "ssh-keygen"), []

    def serve(self):
        for key in ("host", "user"):
            call(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", f"{self.root}/{key}.key"])
        if os.getuid() == 0:
            os.makedirs("/run/sshd", exist_ok=True)
        self.options = ["-F", "none", "-i", f"{self.root}/user.key", *self.cipher, "-P",
                        str(self.port), "-o", "StrictHostKeyChecking=no", "-o",
                        "UserKnownHostsFile=/dev/null", "-o", "LogLevel=ERROR"]
        self.host = f"{getpass.getuser()}@127.0.0.1"
        return ["/usr/sbin/sshd", "-D", "-f", self.configure(SSHD)]

    def batch(self, *lines):
        path = os.path.join(self.root, "batch")
        with open(path, "w", encoding="utf-8") as out:
            out.write("\n".join(lines) + "\n")
        call(["sftp", "-q", *self.options, "-b", path, self.host])

    def put(self, source, case):
        place = f"{self.store}/{case}"
        self.batch(f"mkdir {place}", f"put {source}/* {place}/")

    def get(self, case, target):
        os.makedirs(target)
        self.batch(f"get {self.store}/{case}/* {target}/")


class SftpGcm(Sftp):
    name, cipher = "sftp aes128-gcm", ["-c", "aes128-gcm@openssh.com"]


class Scp(Sftp):
    name, programs = "scp", ("sshd", "scp", "ssh-keygen")

    def put(self, source, case):
        call(["scp", "-q", "-r", *self.options, source, f"{self.host}:{self.store}/{case}"])

    def get(self, case, target):
        call(["scp", "-q", "-r", *self.options, f"{self.host}:{self.store}/{case}", target])


ALL = (Rsync, Ftp, WebDav, Sftp, SftpGcm, Scp)
