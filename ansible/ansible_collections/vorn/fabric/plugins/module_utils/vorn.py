# -*- coding: utf-8 -*-
# Shared by the vorn.fabric modules: reading a host's devices through `vornctl show --json` and
# running `vorn_tool` and `vornctl`.
#
# The modules never talk to the driver: every read goes through vornctl, every change through
# vornctl apply or vorn_tool, so the tool's own checks, locks and saved file stay the single
# authority. Values are never range-checked here: a value the tool refuses fails the task with
# the tool's own message.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import os
import shlex

# The options every module takes (see the doc fragment vorn.fabric.common).
COMMON_ARGS = dict(
    vorn_tool_path=dict(type='path', default='/usr/sbin/vorn_tool'),
    vornctl_path=dict(type='path', default='/usr/sbin/vornctl'),
)

SHOW_SCHEMA = 'vornctl-show'
SHOW_SCHEMA_VERSION = 2


def text(value):
    """The value as vorn_tool takes it on its command line (None stays None)."""
    if value is None:
        return None
    if isinstance(value, bool):
        return '1' if value else '0'
    return str(value).strip()


def tool_message(stdout, stderr, rc):
    """What a failed run said: its standard error, then its standard output."""
    parts = [p.strip() for p in (stderr, stdout) if p and p.strip()]
    if parts:
        return '\n'.join(parts)
    return 'exited with status %d and printed nothing' % rc


class Vorn(object):
    """One module run on one host: reads through vornctl, changes through vorn_tool.

    Every vorn_tool command the run needs is recorded in `commands`, whether it ran or (in
    check mode) would have run; `changed` is true exactly when one of them ran or would run.
    """

    def __init__(self, module):
        self.module = module
        self.tool = module.params['vorn_tool_path']
        self.ctl = module.params['vornctl_path']
        self.check_mode = module.check_mode
        self.commands = []
        self.ran = 0

    # -- running -------------------------------------------------------------------------

    def _require(self, path, option):
        if not os.path.isfile(path) or not os.access(path, os.X_OK):
            self.module.fail_json(msg='%s is not an executable file (option %s)' % (path, option))

    def _run(self, argv):
        # Values go to the program exactly as given: no shell, no expansion of "$" or "~".
        return self.module.run_command(argv, expand_user_and_vars=False)

    def show(self, device=None):
        """The `vornctl show --json` document, of one device or of every device."""
        self._require(self.ctl, 'vornctl_path')
        argv = [self.ctl, 'show', '--json']
        if device is not None:
            argv += ['-i', text(device)]
        rc, out, err = self._run(argv)
        if rc != 0:
            self.fail(tool_message(out, err, rc), rc=rc, stdout=out, stderr=err,
                      cmd=_quote(argv))
        try:
            doc = json.loads(out)
        except ValueError as exc:
            self.fail('vornctl show --json printed no JSON document: %s' % exc,
                      rc=rc, stdout=out, stderr=err, cmd=_quote(argv))
        if doc.get('schema') != SHOW_SCHEMA or doc.get('schema_version') != SHOW_SCHEMA_VERSION:
            self.fail('vornctl show --json answered schema %r version %r; these modules read %s '
                      'version %d' % (doc.get('schema'), doc.get('schema_version'),
                                      SHOW_SCHEMA, SHOW_SCHEMA_VERSION), cmd=_quote(argv))
        return doc

    def tool_exec(self, args):
        """Runs `vorn_tool ARGS` (in check mode only records that it would): (rc, out, err, cmd).

        A run that fails still counts as run: it may have changed the device before failing.
        """
        # Check mode too finds a wrong path: the command could not run for real either.
        self._require(self.tool, 'vorn_tool_path')
        argv = [self.tool] + [text(a) for a in args]
        self.commands.append(_quote(['vorn_tool'] + argv[1:]))
        if self.check_mode:
            return 0, '', '', _quote(argv)
        rc, out, err = self._run(argv)
        self.ran += 1
        return rc, out, err, _quote(argv)

    def tool_run(self, args):
        """Runs `vorn_tool ARGS` (in check mode only records that it would); fails the task with
        the tool's own message and exit status when it fails. Returns its standard output."""
        ran_before = self.ran
        rc, out, err, cmd = self.tool_exec(args)
        if rc != 0:
            # The commands before this one did run: the task changed something and failed.
            self.fail(tool_message(out, err, rc), rc=rc, stdout=out, stderr=err, cmd=cmd,
                      changed=ran_before > 0)
        return out

    @property
    def changed(self):
        return len(self.commands) > 0

    def fail(self, msg, **extra):
        extra.setdefault('changed', self.ran > 0)
        self.module.fail_json(msg=msg, commands=self.commands, **extra)


def _quote(argv):
    return ' '.join(shlex.quote(a) for a in argv)
