# SPDX-License-Identifier: MIT
"""Running the command: limits of time and size, and a command that misbehaves."""
import os
import re
import signal
import threading
import time

import hostadm
import pytest


def test_a_command_that_is_not_there_is_told():
    with pytest.raises(hostadm.Error, match="/nonexistent/hostadm cannot be started: No such file"):
        hostadm.Server(command="/nonexistent/hostadm").run("a/b")


def test_a_system_without_the_command_is_told(monkeypatch):
    monkeypatch.setenv("PATH", "/nonexistent")
    monkeypatch.setattr("shutil.which", lambda *_, **__: None)
    with pytest.raises(hostadm.Error, match="the command hostadm is not installed"):
        hostadm.Server().run("a/b")


def test_what_the_command_says_is_the_error_when_it_does_not_answer(fake):
    command = fake("print('hostadm: no', file=sys.stderr); sys.exit(2)")
    with pytest.raises(hostadm.Error, match="^hostadm: no$"):
        hostadm.Server(command=command).run("a/b")


def test_a_silent_command_is_told(fake):
    with pytest.raises(hostadm.Error, match="hostadm ended with status 7 and gave no answer"):
        hostadm.Server(command=fake("sys.exit(7)")).run("a/b")


def test_an_answer_that_breaks_off_is_no_answer(fake):
    with pytest.raises(hostadm.Error, match="ended with status 0 and gave no answer"):
        hostadm.Server(command=fake("print('{\"method\": ')")).run("a/b")


def stopped(command, marker, grace):
    """The exception of a run that was given enough time to leave its marker, however slow this machine is."""
    for timeout in (0.5, 2, 8, 32, 128):
        with pytest.raises(hostadm.TimedOut) as timed_out:
            hostadm.Server(command=command, timeout=timeout, grace=grace).run("a/b")
        if marker.exists():
            return timed_out.value
    pytest.fail("the command never got so far")


def test_a_run_that_takes_too_long_is_asked_to_end(fake, tmp_path):
    command = fake(
        f"""
        def ended(*_):
            answer({{'method': 'a/b', 'status': 'failed', 'outputs': {{}}, 'rows': [],
                    'errors': [{{'code': 100, 'text': 'taken back'}}], 'half_done': False}})
            open({str(tmp_path / 'ended')!r}, 'w').close()
            os._exit(1)
        signal.signal(signal.SIGTERM, ended)
        while True: time.sleep(1)
        """
    )
    timed_out = stopped(command, tmp_path / "ended", grace=60)
    assert re.fullmatch("a/b had not ended after [0-9.]+ seconds and was stopped", str(timed_out))
    assert timed_out.__cause__.message == "taken back"
    assert isinstance(timed_out, TimeoutError)


def test_a_run_that_does_not_end_is_killed_with_what_it_started(fake, tmp_path):
    command = fake(
        f"""
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
        child = os.fork()
        if child:
            open({str(tmp_path / 'writing')!r}, 'w').write(f'{{os.getpid()}} {{child}}')
            os.rename({str(tmp_path / 'writing')!r}, {str(tmp_path / 'pids')!r})
        while True: time.sleep(1)
        """
    )
    stopped(command, tmp_path / "pids", grace=0.2)
    for pid in map(int, (tmp_path / "pids").read_text().split()):
        give_up = time.monotonic() + 60
        while is_alive(pid):
            assert time.monotonic() < give_up
            time.sleep(0.01)


def is_alive(pid):
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
            return stat.read().rpartition(")")[2].split()[0] not in "ZX"
    except FileNotFoundError:
        return False


def test_too_large_an_answer_is_not_kept(fake):
    command = fake("while True: print('x' * 65536)")
    with pytest.raises(hostadm.TooMuchOutput, match="larger than 1000000 bytes"):
        hostadm.Server(command=command, output_limit=1000000, grace=0.2).run("a/b")


def test_a_talkative_command_is_not_held_up(fake):
    command = fake(
        """
        for _ in range(100): print('x' * 65536, file=sys.stderr)
        answer({'method': 'a/b', 'status': 'done', 'outputs': {}, 'rows': [], 'errors': [],
                'half_done': False})
        """
    )
    assert hostadm.Server(command=command).run("a/b").rows == ()


def test_what_a_method_leaves_running_is_not_waited_for(fake, tmp_path):
    command = fake(
        f"""
        child = os.fork()
        if child == 0:
            os.close(1)
            while True: time.sleep(1)
        open({str(tmp_path / 'pid')!r}, 'w').write(str(child))
        answer({{'method': 'a/b', 'status': 'done', 'outputs': {{}}, 'rows': [], 'errors': [],
                'half_done': False}})
        """
    )
    try:
        assert hostadm.Server(command=command, timeout=60).run("a/b").rows == ()
        assert is_alive(int((tmp_path / "pid").read_text()))
    finally:
        os.kill(int((tmp_path / "pid").read_text()), signal.SIGKILL)


def test_an_interrupted_run_is_asked_to_end(fake, tmp_path):
    command = fake(
        f"""
        ended = {str(tmp_path / 'ended')!r}
        signal.signal(signal.SIGTERM, lambda *_: (open(ended, 'w').close(), sys.exit(1)))
        open({str(tmp_path / 'begun')!r}, 'w').close()
        while True: time.sleep(1)
        """
    )

    def interrupt():
        while not (tmp_path / "begun").exists():
            time.sleep(0.01)
        os.kill(os.getpid(), signal.SIGINT)

    thread = threading.Thread(target=interrupt)
    thread.start()
    with pytest.raises(KeyboardInterrupt):
        hostadm.Server(command=command).run("a/b")
    thread.join()
    assert (tmp_path / "ended").exists()


def test_no_descriptor_is_left_open(trial):
    trial.test.echo(text="a")
    before = len(os.listdir("/proc/self/fd"))
    for _ in range(5):
        trial.test.echo(text="a")
    assert len(os.listdir("/proc/self/fd")) == before
