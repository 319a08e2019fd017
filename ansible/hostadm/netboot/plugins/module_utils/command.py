# SPDX-License-Identifier: MIT
"""Asking the command hostadm: running and previewing methods, and what came of it."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import base64
import json

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.common.text.converters import to_text

DONE, FAILED, INVALID = 0, 1, 2

COMMON_ARGUMENTS = dict(executable=dict(type='path'))


class Failure(Exception):
    """Why something could not be done, with what else is known of it."""

    def __init__(self, message, **known):
        super(Failure, self).__init__(message)
        self.known = known


def readable(value):
    """A value as JSON gives it: bytes that are no text come in base64."""
    if isinstance(value, dict) and list(value) == ['base64']:
        return to_text(base64.b64decode(value['base64']), errors='surrogate_or_replace')
    if isinstance(value, dict):
        return dict((name, readable(field)) for name, field in value.items())
    if isinstance(value, list):
        return [readable(item) for item in value]
    return value


def word(value):
    """A value of an argument, in the command's spelling."""
    if isinstance(value, bool):
        return 'yes' if value else 'no'
    if isinstance(value, (list, tuple)):
        return ','.join(word(item) for item in value)
    if isinstance(value, dict):
        raise Failure('a value of an argument cannot be a dictionary: %s' % json.dumps(value))
    return to_text(value)


def words(arguments):
    """NAME=VALUE for those that have a value."""
    return ['%s=%s' % (name, word(arguments[name])) for name in sorted(arguments) if arguments[name] is not None]


def quoted(text):
    """Quoted for a line of hostadm preview --then."""
    return "'%s'" % text.replace("'", "'\\''")


def failure_text(method, answer):
    """The text of a failure, as the command itself would tell it."""
    parts = ['%s (error %s)' % (error['text'], error['code']) for error in answer['errors']]
    if 'reason' in answer:
        parts.append(answer['reason'])
    parts += ['left half done: %s' % text for text in answer.get('left_undone', [])]
    if answer['half_done'] and 'left_undone' not in answer:
        parts.append('something may be left half done')
    return '%s: %s' % (method, '; '.join(parts) or 'it failed without saying why')


class Command(object):
    """The command on the server."""

    def __init__(self, module):
        self.module = module
        self.path = module.params.get('executable') or module.get_bin_path('hostadm')
        if not self.path:
            module.fail_json(msg='there is no command hostadm on this host; install the package hostadm')

    def answer(self, *line):
        """What it answers as JSON, and its exit status. No shell sees its words."""
        status, output, errors = self.module.run_command([self.path] + list(line))
        try:
            return readable(json.loads(output)), status
        except ValueError:
            raise Failure('hostadm %s: %s' % (line[0], errors.strip() or 'its answer cannot be understood'),
                          rc=status)

    def well(self, method, answer, status):
        """The answer, if the method was done."""
        if answer.get('status') != 'done':
            known = dict((name, answer[name])
                         for name in ('outputs', 'rows', 'errors', 'half_done', 'left_undone') if name in answer)
            if answer.get('errors'):
                known['code'] = answer['errors'][-1]['code']
            raise Failure(failure_text(method, answer), rc=status, **known)
        return answer

    def run(self, method, arguments):
        answer, status = self.answer('run', '--json', method, *words(arguments))
        return self.well(method, answer, status)

    def rows(self, method):
        return self.run(method, {})['rows']

    def preview(self, steps):
        """What all the steps together would answer and change."""
        method, arguments = steps[0]
        line = ['preview', '--json'] + [method] + words(arguments)
        for later, further in steps[1:]:
            line += ['--then', ' '.join(quoted(one) for one in ['run', '--json', later] + words(further))]
        answer, status = self.answer(*line)
        self.well(method, answer, status)
        if status != DONE:
            raise Failure('a later step would fail: %s' % answer.get('then', '').strip(), rc=status)
        return answer


def is_changed(answer):
    """Whether a run changed something: what changes nothing at all has no output of that name."""
    return answer['outputs'].get('changed', 'no') == 'yes'


def change_line(change):
    """A change that is no difference of texts, in a line."""
    state = change['after'] or change['before']
    kind = state['type'] + (' -> %s' % state['target'] if 'target' in state else '')
    line = '%s %s (%s, mode %s' % (change['change'], change['path'], kind, state['mode'])
    if change['before'] and change['after'] and change['before']['mode'] != change['after']['mode']:
        line += ', before %s' % change['before']['mode']
    return line + ', owner %s:%s)\n' % (state['uid'], state['gid'])


def diff_of(answer):
    """The differences, as Ansible shows them when they are prepared."""
    lines = [change.get('diff') or change_line(change) for change in answer['changes']]
    if lines or is_changed(answer):
        lines += ['run %s\n' % ' '.join([one['path']] + one['arguments']) for one in answer['commands']]
    return dict(prepared=''.join(lines))


def result_of(answers):
    """What a module returns of one or several runs."""
    last = answers[-1]
    notes = [error['text'] for answer in answers for error in answer['errors']]
    return dict(
        changed=any(is_changed(answer) for answer in answers),
        outputs=last['outputs'],
        rows=[row for answer in answers for row in answer['rows']],
        warnings=notes,
    )


def carry_out(command, steps):
    """Does the steps, each a method and its arguments, or only says what they would change. Returns the result."""
    module = command.module
    difference = None
    if not steps:
        result = dict(changed=False, outputs={}, rows=[], commands=[])
        difference = dict(prepared='')
    elif module.check_mode:
        answer = command.preview(steps)
        result = result_of([answer])
        # The first step's own word holds for it; of the later ones the files tell.
        result['changed'] = result['changed'] or (len(steps) > 1 and bool(answer['changes']))
        result['commands'] = [[one['path']] + one['arguments'] for one in answer['commands']]
        difference = diff_of(answer)
    else:
        if module._diff:
            try:
                difference = diff_of(command.preview(steps))
            except Failure as failure:
                module.warn('no differences are shown, since there is no preview: %s' % failure)
        result = result_of([command.run(method, arguments) for method, arguments in steps])
    if difference is not None and module._diff:
        result['diff'] = difference
    return result


def main(arguments, work, **settings):
    """A module: its arguments, and its work, which takes the module and the command and returns the result."""
    module = AnsibleModule(argument_spec=dict(COMMON_ARGUMENTS, **arguments), supports_check_mode=True, **settings)
    try:
        result = work(module, Command(module))
    except Failure as failure:
        module.fail_json(msg=to_text(failure), **failure.known)
    for note in result.pop('warnings', []):
        module.warn(note)
    module.exit_json(**result)
