"""A Slurm cluster of two nodes on this machine, for tests: without systemd, cgroups and a network."""
import contextlib
import getpass
import os
import signal
import socket
import subprocess
import time

CONFIG = """ClusterName=box
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={port}
SlurmUser={user}
SlurmdUser={user}
AuthType=auth/munge
AuthInfo=socket={folder}/run/munge.socket,cred_expire=5
CredType=cred/munge
CommunicationParameters=NoInAddrAny
SlurmctldPidFile={folder}/run/slurmctld.pid
SlurmdPidFile={folder}/run/slurmd.%n.pid
StateSaveLocation={folder}/state
SlurmdSpoolDir={folder}/spool/%n
SlurmctldLogFile={folder}/log/slurmctld.log
SlurmdLogFile={folder}/log/slurmd.%n.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
SwitchType=switch/none
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
SchedulerParameters=batch_sched_delay=0,sched_interval=5,bf_interval=5
SlurmdParameters=config_overrides
ReturnToService=2
MaxArraySize=20
NodeName=n1 NodeHostname={host} NodeAddr=127.0.0.1 Port={port1} CPUs=1 RealMemory=500
NodeName=n2 NodeHostname={host} NodeAddr=127.0.0.1 Port={port2} CPUs=1 RealMemory=500
PartitionName=farm Nodes=n1,n2 Default=YES MaxTime=INFINITE State=UP
SlurmdTimeout=10
KillWait=3
RequeueExit=75
"""
NODES = ("n1", "n2")


def free_ports(count):
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]


def wait_for(what, condition, seconds):
    """What the condition gives as soon as that is true."""
    end = time.monotonic() + seconds
    while True:
        found = condition()
        if found:
            return found
        if time.monotonic() > end:
            raise AssertionError("waited %d s in vain for %s" % (seconds, what))
        time.sleep(0.2)


class SlurmCluster:
    """Runs from start() to stop(); in between the commands of Slurm find it by the environment."""

    def __init__(self, folder):
        self.folder = folder
        self.config = os.path.join(folder, "slurm.conf")
        self.daemons = {}

    def start(self):
        for name in ("run", "state", "log", "spool/n1", "spool/n2"):
            os.makedirs(os.path.join(self.folder, name), mode=0o755)
        port, port1, port2 = free_ports(3)
        with open(self.config, "w", encoding="utf-8") as file:
            file.write(CONFIG.format(folder=self.folder, host=socket.gethostname(), user=getpass.getuser(),
                                     port=port, port1=port1, port2=port2))
        os.environ["SLURM_CONF"] = self.config
        key = os.path.join(self.folder, "run", "munge.key")
        with open(os.open(key, os.O_WRONLY | os.O_CREAT, 0o400), "wb") as file:
            file.write(os.urandom(128))
        run = os.path.join(self.folder, "run", "munge.")
        self.launch("munged", "munged", "--foreground", "--force", "--key-file", key, "--socket", run + "socket",
                    "--pid-file", run + "pid", "--seed-file", run + "seed",
                    "--log-file", os.path.join(self.folder, "log", "munged.log"))
        wait_for("munged", lambda: os.path.exists(run + "socket"), 20)
        self.launch("slurmctld", "slurmctld", "-D")
        for node in NODES:
            self.start_node(node)
        wait_for("the nodes", lambda: command("sinfo", "-h", "-o", "%T %D") == "idle 2", 60)

    def start_node(self, node):
        self.launch(node, "slurmd", "-D", "-N", node)

    def launch(self, name, program, *arguments):
        with open(os.path.join(self.folder, "log", name + ".out"), "ab") as log:
            self.daemons[name] = subprocess.Popen([find(program), *arguments], stdin=subprocess.DEVNULL, stdout=log,
                                                  stderr=log)

    def kill_node(self, node):
        """As when the machine loses power: the daemon, its helpers and the job, at once."""
        victims = [pid for pid, name in self.jobs() if name == node]
        self.daemons[node].kill()
        self.daemons[node].wait()
        for pid in [parent_of(pid) for pid in victims] + victims:
            kill(pid, signal.SIGKILL)

    def jobs(self):
        """The processes of jobs that this cluster has started, each with its node."""
        for pid in filter(str.isdigit, os.listdir("/proc")):
            environment = environment_of(pid)
            if environment.get("SLURM_CONF") == self.config and "SLURMD_NODENAME" in environment:
                yield int(pid), environment["SLURMD_NODENAME"]

    def stop(self):
        for name in reversed(list(self.daemons)):
            self.daemons[name].terminate()
            try:
                self.daemons[name].wait(20)
            except subprocess.TimeoutExpired:
                self.daemons[name].kill()
                self.daemons[name].wait()
        for pid, _ in list(self.jobs()):
            kill(pid, signal.SIGKILL)


def find(program):
    """Daemons are not on every user's path."""
    folder = next((folder for folder in ("/usr/sbin", "/sbin") if os.path.exists(os.path.join(folder, program))), "")
    return os.path.join(folder, program)


def command(*words):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, universal_newlines=True).stdout.strip()


def environment_of(pid):
    try:
        with open("/proc/%s/environ" % pid, "rb") as file:
            words = file.read().decode(errors="replace").split("\0")
    except OSError:
        return {}
    return dict(word.split("=", 1) for word in words if "=" in word)


def parent_of(pid):
    with open("/proc/%d/stat" % pid, encoding="utf-8") as file:
        return int(file.read().rsplit(")", 1)[1].split()[1])


def kill(pid, number):
    with contextlib.suppress(ProcessLookupError):
        if pid > 1:
            os.kill(pid, number)
