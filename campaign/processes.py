# SPDX-License-Identifier: MIT
"""Child processes that end with the campaign, however it ends."""
import os
import select
import signal
import subprocess
import threading

_children = []
_lock = threading.Lock()


def start(command, *, user=None, **options):
    """Starts a program, which gets SIGKILL when the thread that started it ends. Returns its Popen.

    `user` is a name whose user and groups the program has, with no capability left.
    """
    setpriv = ["setpriv", "--pdeathsig", "KILL"]
    if user is not None:
        setpriv += ["--reuid", user, "--regid", user_group(user), "--init-groups", "--inh-caps=-all"]
    child = subprocess.Popen([*setpriv, "--", *map(str, command)], stdin=subprocess.DEVNULL, **options)
    with _lock:
        _children.append(child)
    return child


def user_group(user):
    return subprocess.run(["id", "-gn", user], check=True, capture_output=True, text=True).stdout.strip()


def wait(child, timeout):
    """Waits for the end of a process. Returns its status; None when the time is over."""
    if child.poll() is None:
        try:
            descriptor = os.pidfd_open(child.pid)
        except ProcessLookupError:
            return child.wait()
        try:
            # Popen.wait() would sleep up to 50 ms longer than the process lives.
            waiting = select.poll()
            waiting.register(descriptor, select.POLLIN)
            waiting.poll(timeout * 1000)
        finally:
            os.close(descriptor)
    return child.poll()


def end(child, patience=10):
    """SIGTERM, and SIGKILL when that does not help. Returns the exit status."""
    if child.poll() is None:
        child.send_signal(signal.SIGCONT)
        child.terminate()
        if wait(child, patience) is None:
            child.kill()
    status = child.wait()
    with _lock:
        if child in _children:
            _children.remove(child)
    return status


def kill(child):
    """SIGKILL. Returns when the process is gone."""
    if child.poll() is None:
        child.kill()
    return end(child)


def end_all():
    """Ends what sections have left over, the last one first."""
    with _lock:
        left = list(reversed(_children))
    for child in left:
        end(child, patience=2)
