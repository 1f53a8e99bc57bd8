"""The same tables through engines of others: GNU parallel here and over ssh, and Slurm."""
import os
import shutil
import socket
import subprocess
import tempfile
import time
import unittest

from harness import ADMIN, TOOLKIT, pack, read, run, write
from makers import small_app
from test_batch import StandInTest, kill_session, rows_of

SSHD = "/usr/sbin/sshd"


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def wait_for(condition, what):
    for _ in range(600):
        if condition():
            return
        time.sleep(0.05)
    raise AssertionError(what)


def listens(port):
    with socket.socket() as client:
        return client.connect_ex(("127.0.0.1", port)) == 0


@unittest.skipUnless(shutil.which("parallel"), "GNU parallel is not installed")
class Parallel(StandInTest):
    def run_parallel(self, *words, **keywords):
        return self.run_jobs("--engine", "parallel", "--jobs", "4", *words, **keywords)

    def test_here(self):
        contents = [f"app {index}" for index in range(12)] + ["bad:", "lazy"]
        self.make_jobs(contents)
        result = self.run_parallel()
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("12 done, 2 failed, 0 left of 14", result.stdout)
        self.assertEqual(len(rows_of(result.stdout)), 14)
        self.assert_whole(contents)
        self.assertEqual(len(read(self.folder, "jobs.csv.state", "parallel.log").splitlines()), 15)
        # Another engine goes on from there.
        before = len(self.begun())
        write(b"good now", self.folder, "in", "12.wex")
        self.assertIn("13 done, 1 failed", self.run_jobs().stdout)
        self.assertEqual(len(self.begun()), before + 2)

    def test_killed_and_resumed(self):
        contents = [f"app {index}" for index in range(40)]
        table = self.make_jobs(contents)
        engine = subprocess.Popen([self.program, "run", table, "--engine", "parallel", "--jobs", "4"],
                                  env=self.environment | {"PAUSE": "0.1"}, start_new_session=True,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_for(lambda: len(self.results(table)) > 5, "nothing was done")
        kill_session(engine.pid)
        engine.wait()
        done = [self.path("in", f"{row - 1}.wex") for row in self.results(table)]
        result = self.run_parallel("--resume")
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertEqual(len(self.results(table)), 40)
        self.assert_whole(contents)
        begun = self.begun()
        self.assertEqual([begun.count(path) for path in done], [1] * len(done))

    def test_no_engine(self):
        self.make_jobs(["app"])
        result = self.run_parallel(environment={"PATH": self.folder})
        self.assertEqual(result.returncode, 2)
        self.assertIn("no program parallel", result.stderr)


@unittest.skipUnless(shutil.which("parallel") and shutil.which("rsync") and os.path.exists(SSHD),
                     "GNU parallel, rsync or sshd is not installed")
class Hosts(StandInTest):
    """This machine as a host of its own: a private sshd on the loopback, with keys of its own."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        # Without blanks, which configurations of ssh would take apart.
        cls.ssh = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="tovrek-ssh-"))
        port = free_port()
        for name in ("host", "user"):
            run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", os.path.join(cls.ssh, name))
        write(f"""Port {port}
ListenAddress 127.0.0.1
HostKey {cls.ssh}/host
PidFile {cls.ssh}/pid
AuthorizedKeysFile {cls.ssh}/user.pub
StrictModes no
UsePAM no
PermitRootLogin yes
""".encode(), cls.ssh, "sshd")
        write(f"""Host worker
  HostName 127.0.0.1
  Port {port}
  IdentityFile {cls.ssh}/user
  IdentitiesOnly yes
  StrictHostKeyChecking no
  UserKnownHostsFile {cls.ssh}/known
  LogLevel ERROR
  ControlMaster auto
  ControlPath {cls.ssh}/master
  ControlPersist 5
""".encode(), cls.ssh, "config")
        if os.getuid() == 0:
            os.makedirs("/run/sshd", exist_ok=True)
        server = subprocess.Popen([SSHD, "-D", "-e", "-f", os.path.join(cls.ssh, "sshd")],
                                  stderr=subprocess.DEVNULL)
        cls.addClassCleanup(server.wait)
        cls.addClassCleanup(server.terminate)
        wait_for(lambda: listens(port), "sshd does not listen")
        cls.environment["PARALLEL_SSH"] = f"ssh -F {cls.ssh}/config"
        cls.hosts = write(b"4/worker\n", cls.folder, "hosts")

    def remote(self, program, **variables):
        """A program that has this environment on the other side, as a login there would."""
        names = {"BEGUN": self.environment["BEGUN"], "TMPDIR": self.ssh} | variables
        text = "".join(f"export {name}='{value}'\n" for name, value in names.items())
        path = write(f"#!/bin/sh\n{text}exec '{program}' \"$@\"\n".encode(), self.ssh, "remote")
        os.chmod(path, 0o755)
        return path

    def run_on_hosts(self, table, program, *words, **variables):
        return self.batch("run", table, "--engine", "parallel", "--hosts", self.hosts, "--remote",
                          self.remote(program, **variables), *words, program=self.program)

    def test_files_travel(self):
        contents = ["app 0", "app 1", "bad:", "lazy"]
        table = self.make_jobs(contents)
        result = self.run_on_hosts(table, self.program)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("2 done, 2 failed, 0 left of 4", result.stdout)
        self.assertIn("ERROR: <b>bad</b>", result.stdout)
        self.assert_whole(contents)
        self.assertEqual(len(os.listdir(self.path("out"))), 2)
        # No input was read where it lies, and nothing is left on either side.
        self.assertFalse([path for path in self.begun() if path.startswith(self.folder)])
        self.assertEqual([name for name in os.listdir(self.path("jobs.csv.state", "parcels"))
                          if not name.endswith(".jsonl")], [])
        before = len(self.begun())
        self.assertIn("2 of 4 are done already", self.run_on_hosts(table, self.program).stdout)
        self.assertEqual(len(self.begun()), before + 2)

    def test_keys_stay(self):
        """A real app, wrapped where the keychain is."""
        with small_app() as (folder, _):
            pack(folder, self.path("small.ipa"))
        table = self.table(f"command,in,out,outBundle,Cert,Profile\nWrap,small.ipa,out/a.wex,"
                           f"out/a.ipa,{ADMIN},usual.mobileprovision\n", "keys.csv")
        result = self.run_on_hosts(table, os.path.join(TOOLKIT, "Batch"),
                                   XDG_DATA_HOME=self.environment["XDG_DATA_HOME"])
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertEqual(sorted(os.listdir(self.path("out"))), ["a.ipa", "a.wex"])
        row = self.path("keys.csv.state", "rows")
        for name in ("output.txt", "Orvane.log", "result.json"):
            self.assertTrue(read(row, os.listdir(row)[0], name))

    def test_what_cannot_travel(self):
        write(b"x", self.folder, "in", "tab\t.wex")
        write(b"x", self.folder, "in", "a", "same.xml")
        write(b"x", self.folder, "in", "same.xml")
        table = self.table('command,in,out,policyXML\nSetInfo,"in/tab\t.wex",out/1.wex,\n'
                           "SetInfo,in/same.xml,out/2.wex,in/a/same.xml\n", "travel.csv")
        result = self.run_on_hosts(table, self.program)
        self.assertEqual(result.returncode, 1)
        for text in ("row 1 (line 2), in: its path holds a tab", "row 2 (line 3), policyXML: another"):
            self.assertIn(text, result.stderr)


SLURM = [shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin")
         for name in ("sbatch", "slurmctld", "slurmd", "munged")]


@unittest.skipUnless(all(SLURM) and os.getuid() == 0,
                     "Slurm is not installed, or this user may not start its services")
class Slurm(StandInTest):
    """A cluster of this machine alone, with a configuration of its own."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.cluster = cls.enterClassContext(tempfile.TemporaryDirectory(prefix="tovrek-slurm-"))
        os.chmod(cls.cluster, 0o755)
        ports = (free_port(), free_port())
        here = socket.gethostname()
        configuration = write(f"""ClusterName=test
SlurmctldHost={here}(127.0.0.1)
SlurmctldPort={ports[0]}
SlurmdPort={ports[1]}
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket={cls.cluster}/munge/socket
CredType=cred/munge
StateSaveLocation={cls.cluster}/state
SlurmdSpoolDir={cls.cluster}/spool
SlurmctldPidFile={cls.cluster}/slurmctld.pid
SlurmdPidFile={cls.cluster}/slurmd.pid
SlurmctldLogFile={cls.cluster}/slurmctld.log
SlurmdLogFile={cls.cluster}/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
SchedulerParameters=sched_interval=1,batch_sched_delay=0
ReturnToService=2
MpiDefault=none
NodeName={here} NodeAddr=127.0.0.1 CPUs={os.cpu_count()} State=UNKNOWN
PartitionName=all Nodes={here} Default=YES MaxTime=INFINITE State=UP
""".encode(), cls.cluster, "slurm.conf")
        for name in ("state", "spool", "munge"):
            os.makedirs(os.path.join(cls.cluster, name), 0o755)
        os.chmod(write(os.urandom(128), cls.cluster, "key"), 0o400)
        munge = os.path.join(cls.cluster, "munge")
        cls.serve(SLURM[3], "--foreground", "--force", f"--socket={munge}/socket",
                  f"--key-file={cls.cluster}/key", f"--pid-file={munge}/pid",
                  f"--log-file={munge}/log", f"--seed-file={munge}/seed")
        wait_for(lambda: os.path.exists(f"{munge}/socket"), "munged does not answer")
        cls.environment["SLURM_CONF"] = configuration
        cls.serve(SLURM[1], "-D", "-f", configuration)
        cls.serve(SLURM[2], "-D", "-f", configuration, "-N", here)
        wait_for(lambda: b"idle" in run("sinfo", "-h", "-o", "%T", check=False,
                                        env=cls.environment).stdout, "no node is idle")

    @classmethod
    def serve(cls, *command):
        service = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                   env=cls.environment)
        cls.addClassCleanup(service.wait)
        cls.addClassCleanup(service.terminate)

    def run_slurm(self, *words):
        return self.run_jobs("--engine", "slurm", *words)

    def test_one_array(self):
        contents = [f"app {index}" for index in range(6)] + ["bad:", "lazy"]
        self.make_jobs(contents)
        result = self.run_slurm("--jobs", "4")
        engine = read(self.folder, "jobs.csv.state", "engine.txt")
        self.assertEqual(result.returncode, 1, result.stderr + engine.decode())
        self.assertIn("6 done, 2 failed, 0 left of 8", result.stdout)
        self.assert_whole(contents)
        before = len(self.begun())
        write(b"good now", self.folder, "in", "6.wex")
        self.assertIn("7 done, 1 failed, 0 left of 8", self.run_slurm().stdout)
        self.assertEqual(len(self.begun()), before + 2)

    def test_interrupted(self):
        table = self.make_jobs(["slow", "slow"])
        batch = subprocess.Popen([self.program, "run", table, "--engine", "slurm"],
                                 env=self.environment, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL)
        wait_for(self.begun, "nothing has begun")
        batch.terminate()
        self.assertEqual(batch.wait(timeout=30), -15)
        queue = lambda: run("squeue", "-h", env=self.environment).stdout
        wait_for(lambda: not queue(), "the array goes on")
        self.assertEqual(self.results(table), {})
        self.assertEqual(os.listdir(self.path("out")), [])
