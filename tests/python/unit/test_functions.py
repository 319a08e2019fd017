# SPDX-License-Identifier: MIT
"""Methods as functions: what they take, and what comes back."""
import concurrent.futures
import inspect
import os
import pathlib
import pickle
import pydoc

import hostadm
import pytest


def test_a_method_is_a_function_of_its_class(trial):
    answer = trial.test.echo(text="hi", times=2, rows=True)
    assert answer.method == "test/echo"
    assert answer.said == "hihi"
    assert [row.text for row in answer] == ["hi", "hi"]
    assert answer.rows[1]["time"] == "2"
    assert answer.changed is None


def test_a_method_is_run_by_its_name(trial):
    assert trial.run("test/echo", text="hi").outputs == {"said": "hi"}


def test_an_argument_that_is_none_counts_as_not_given(trial):
    assert trial.test.echo(text="hi", times=None).said == "hi"


def test_its_signature_and_help_are_those_of_the_description(trial):
    signature = inspect.signature(trial.test.echo)
    assert str(signature).startswith("(*, text: str, times: Union[int, str, NoneType] = '1', rows: ")
    assert signature.return_annotation is hostadm.Answer
    text = pydoc.plain(pydoc.render_doc(trial.test.echo))
    assert "say a text back" in text
    assert "what to say (required)" in text
    assert "how often (default: 1)" in text
    assert "the text, as often as wanted" in text


def test_methods_and_classes_are_listed(trial):
    assert "echo" in dir(trial.test)
    assert trial.test.echo.description.arguments[1].default == "1"
    assert {method.__name__ for method in trial.test} >= {"echo", "behave"}


def test_an_unknown_method_or_class_is_no_attribute(server):
    with pytest.raises(
        AttributeError, match=r"there is no method client/add_disklss; did you mean add_diskless\?"
    ):
        server.client.add_disklss
    with pytest.raises(AttributeError, match=r"there is no class of methods clent; did you mean client\?"):
        server.clent
    assert not hasattr(server, "__wrapped__")


def test_an_unknown_method_is_refused(server):
    with pytest.raises(
        hostadm.Refused, match="^client/ad: there is no method client/ad.*error 102.$"
    ) as refused:
        server.run("client/ad", a="b")
    assert refused.value.code == hostadm.INVALID_ARGUMENT


def test_a_method_that_does_not_describe_itself_takes_texts(trial):
    assert trial.run("test/plain", **{"bytes": "a", "further": None}).outputs["bytes"] == "a"
    with pytest.raises(TypeError, match="the argument bytes cannot be of type int"):
        trial.run("test/plain", **{"bytes": 7})


def test_an_unknown_argument_is_a_type_error_that_says_what_was_meant(trial):
    with pytest.raises(TypeError, match=r"test/echo takes no argument 'txt'; did you mean 'text'\?"):
        trial.test.echo(txt="hi")
    with pytest.raises(TypeError, match="takes no argument 'zzz'; it takes text, times, rows"):
        trial.test.echo(text="hi", zzz="x")


def test_missing_arguments_are_a_type_error(server):
    with pytest.raises(
        TypeError, match="client/add_diskless lacks the required arguments address, ethernet, "
    ):
        server.client.add_diskless(hostname="c1")


@pytest.mark.parametrize("value", [1.5, 7, b"x", True, ["a"], object(), {"a": "b"}])
def test_a_value_of_the_wrong_type_is_a_type_error(trial, value):
    with pytest.raises(TypeError, match="the argument text .text. cannot be of type"):
        trial.test.echo(text=value)


def test_values_become_what_the_method_takes():
    def text(kind, value, **more):
        return hostadm.Argument("a", kind, **more).text(value)

    assert text("yes_no", False) == "no"
    assert text("size", 1 << 40) == str(1 << 40)
    assert text("hosts", ("c1", "c2")) == "c1,c2"
    assert text("options", ["rw", "anon=0"]) == "rw,anon=0"
    assert text("words", iter(["-a", "b"])) == "-a b"
    assert text("path", pathlib.Path("/export")) == "/export"
    assert text("path", b"/\xff") == "/\udcff"
    with pytest.raises(ValueError, match="a value of the argument a holds ','"):
        text("hosts", ["c1,c2"])
    with pytest.raises(TypeError, match="takes a list of str, not of int"):
        text("hosts", [1])
    with pytest.raises(TypeError):
        text("path", [pathlib.Path("/a")])


def test_a_choice_is_checked_before_anything_is_run(server):
    with pytest.raises(
        hostadm.Refused, match=r"the argument takeeffect cannot be 'nowonl'; did you mean 'nowonly'\?"
    ):
        server.filesystem.mount(resource="a:/b", mountpt="/b", takeeffect="nowonl")


@pytest.mark.parametrize(
    "value",
    ["'", '"', "$(reboot)", "a\\nb", "; exit 1", "--json", "-", "=", "ä€😀", " ", "\x1b[2J", "\u2028"],
)
def test_hostile_values_come_back_as_they_went(trial, value):
    assert trial.run("test/plain", **{"bytes": value}).outputs["bytes"] == value


def test_a_value_with_bytes_that_are_no_text_comes_back(trial):
    value = os.fsdecode(bytes(range(1, 256)))
    assert trial.run("test/plain", **{"bytes": value}).outputs["bytes"] == value


def test_an_enormous_value_comes_back(trial):
    value = "x" * (8 << 20)
    assert trial.run("test/plain", **{"bytes": value}).outputs["bytes"] == value


def test_a_nul_is_refused(trial):
    with pytest.raises(hostadm.Refused, match="the argument text holds a NUL character"):
        trial.test.echo(text="a\0b")


def test_a_newline_is_refused_where_one_line_is_wanted(trial):
    with pytest.raises(hostadm.Refused, match="text on one line") as refused:
        trial.test.echo(text="a\nb")
    assert refused.value.code == hostadm.INVALID_ARGUMENT
    assert isinstance(refused.value, ValueError)


def test_a_failure_has_its_code_its_steps_and_what_was_returned(trial):
    with pytest.raises(hostadm.Failed) as failed:
        trial.test.behave(how="fail_twice")
    error = failed.value
    assert (error.method, error.code, error.message) == ("test/behave", 92, "second")
    assert [(step.code, step.text) for step in error.steps] == [(100, "first"), (92, "second")]
    assert str(error) == "test/behave: second (error 92)"
    assert error.answer.rows


def test_what_is_left_undone_is_told(trial):
    with pytest.raises(hostadm.Failed) as failed:
        trial.test.behave(how="undone")
    assert failed.value.half_done
    assert failed.value.left_undone
    assert "\nleft half done: " in str(failed.value)


def test_a_crash_is_a_failure(trial):
    with pytest.raises(hostadm.Failed, match="killed by signal 11"):
        trial.test.behave(how="crash")


def test_an_exception_crosses_between_processes(trial):
    with pytest.raises(hostadm.Failed) as failed:
        trial.test.behave(how="fail")
    again = pickle.loads(pickle.dumps(failed.value))
    assert (str(again), again.steps, again.answer.method) == (
        str(failed.value),
        failed.value.steps,
        "test/behave",
    )


def test_many_threads_share_a_server(trial):
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        answers = list(pool.map(lambda number: trial.test.echo(text=f"t{number}").said, range(40)))
    assert answers == [f"t{number}" for number in range(40)]


def test_a_name_of_pythons_own_is_reached_with_an_underscore(fake):
    server = hostadm.Server(
        command=fake("answer([{'method': 'x/import', 'purpose': ''}] if words[0] == 'list' else 0)")
    )
    assert server.x.import_.description.name == "x/import"


def test_a_method_of_another_host_is_run_there(fake, tmp_path):
    told = tmp_path / "words"
    command = fake(
        f"""
        open({str(told)!r}, 'w').write(json.dumps([words, sys.stdin.read()]))
        answer({{'method': 'a/b', 'status': 'done', 'outputs': {{'changed': 'yes'}}, 'rows': [], 'errors': [],
                'half_done': False}})
        """
    )
    assert hostadm.on("server2", command=command).run("a/b").changed is True
    assert told.read_text() == '[["run", "--json", "--from", "-", "--host=server2", "--", "a/b"], "{}"]'
    with pytest.raises(ValueError, match="the host has no name"):
        hostadm.on("")


def test_the_report_and_the_status_are_objects(fake):
    row = {"section": "client", "name": "c1", "kind": "diskless", "address": "10.0.0.1", "further": "x"}
    finding = {"severity": "error", "where": "/etc/hosts:1", "what": {"base64": "/w=="}}
    command = fake(
        f"""
        rows = [{row!r}] if words[-1] == 'host/status' else [{finding!r}]
        answer({{'method': words[-1], 'status': 'done', 'outputs': {{'clients': '3', 'findings': '1'}},
                'rows': rows, 'errors': [], 'half_done': False}})
        """
    )
    server = hostadm.Server(command=command)
    status = server.status()
    assert (status.clients[0].name, status.clients[0].root, status.shares, status.findings) == (
        "c1",
        "",
        (),
        1,
    )
    report = server.check()
    assert not report
    assert (report.clients, report.errors[0].where, report.errors[0].what) == (3, "/etc/hosts:1", "\udcff")


def test_the_module_itself_is_the_server_here(fake, monkeypatch, tmp_path):
    fake("answer([{'method': 'x/y', 'purpose': 'p'}])")
    monkeypatch.setenv("PATH", f"{tmp_path}:/usr/bin")
    assert hostadm.methods()[0].name == "x/y"
    assert hostadm.x.y.__doc__.startswith("p")
    assert "x" in dir(hostadm)
