# -*- coding: utf-8 -*-
# Shared by the vorn.fabric modules: reading a host's devices through `vornctl show --json`,
# running `vorn_tool`, and comparing desired values with the saved and live ones in the forms
# vornctl prints them.
#
# The modules never talk to the driver: every read goes through vornctl, every change through
# vorn_tool, so the tool's own checks, locks and saved file stay the single authority. Values are
# never range-checked here: a value the tool refuses fails the task with the tool's own message
# and exit status.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import ipaddress
import json
import os
import re
import shlex

# The options every module takes (see the doc fragment vorn.fabric.common).
COMMON_ARGS = dict(
    vorn_tool_path=dict(type='path', default='/usr/sbin/vorn_tool'),
    vornctl_path=dict(type='path', default='/usr/sbin/vornctl'),
)

SHOW_SCHEMA = 'vornctl-show'
SHOW_SCHEMA_VERSION = 2

_DIGITS = re.compile(r'^[0-9]+$')


# ---------------------------------------------------------------------------------------------
# Normal forms. vornctl compares addresses and numbers by value and MAC addresses without case;
# the modules do the same, so that "09000" saved and 9000 desired agree. A text that does not
# read in the item's form is kept as it is: it never equals a well-formed desired value, and a
# malformed desired value reaches vorn_tool, which refuses it with its own message.
# ---------------------------------------------------------------------------------------------

def text(value):
    """The value as vorn_tool takes it on its command line (None stays None)."""
    if value is None:
        return None
    if isinstance(value, bool):
        return '1' if value else '0'
    return str(value).strip()


def norm_ip(value):
    if value is None:
        return None
    raw = text(value)
    try:
        return str(ipaddress.IPv4Address(raw))
    except ValueError:
        return raw


def norm_number(value):
    if value is None:
        return None
    raw = text(value)
    return int(raw) if _DIGITS.match(raw) else raw


def norm_mac(value):
    if value is None:
        return None
    return text(value).lower()


def norm_list(value):
    """A list of numbers, from a Python list (as vornctl gives it) or an "a,b,c" text."""
    if value is None:
        return None
    parts = value if isinstance(value, (list, tuple)) else text(value).split(',')
    out = tuple(norm_number(p) for p in parts)
    return out


def join_list(values):
    """The "a,b,c" form vorn_tool takes for a list."""
    return ','.join(text(v) for v in values)


def route_key(address, netmask):
    return (norm_ip(address), norm_ip(netmask))


def routes_of(entries):
    """vornctl's route entries ({address, netmask, gateway}) as {(address, netmask): gateway},
    in normal form."""
    table = {}
    for entry in entries or []:
        table[route_key(entry['address'], entry['netmask'])] = norm_ip(entry['gateway'])
    return table


def route_text(key, gateway):
    return 'address %s netmask %s gateway %s' % (key[0], key[1], gateway)


def in_segment(address, netmask, gateway):
    try:
        a = int(ipaddress.IPv4Address(address))
        m = int(ipaddress.IPv4Address(netmask))
        g = int(ipaddress.IPv4Address(gateway))
    except ValueError:
        return False
    return (a & m) == (g & m)


def dscp_map_of(entries):
    """vornctl's DSCP entries ({dscp, tc}: the saved ones, or all 64 live) as {dscp: tc}."""
    return dict((norm_number(e['dscp']), norm_number(e['tc'])) for e in entries or [])


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

    def device(self, device):
        """One device's entry of the show document; fails when it cannot be read."""
        doc = self.show(device)
        for dev in doc.get('devices', []):
            if dev.get('phy_id') == device:
                if not dev.get('readable'):
                    health = (dev.get('health') or {}).get('text', 'unknown')
                    self.fail('device %d cannot be read: its health is %s, and vorn_tool does '
                              'not run on it' % (device, health))
                return dev
        self.fail('vornctl show -i %d listed no device %d' % (device, device))

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


class Reconciler(object):
    """Brings one device's items to the desired values, item by item.

    The device's view (live and saved values) is read once, then again before the next item
    after each change, since a change can move other items (an address change prunes the routes
    and the gateway outside the new segment). Each item is compared in normal form; only an item
    whose live OR saved value differs is set.
    `before` and `after` collect the diff of the managed items, `after` predicted in check mode
    and read back otherwise.
    """

    def __init__(self, vorn, device):
        self.vorn = vorn
        self.device = device
        self.view = vorn.device(device)
        self.stale = False
        self.new_segment = None  # (address, netmask) an address change sets
        self.before = {}
        self.after = {}
        self.managed = []  # (name, reader) of every managed item, to read `after` back

    def items(self):
        if self.stale and not self.vorn.check_mode:
            self.view = self.vorn.device(self.device)
            self.stale = False
        return self.view['items']

    def run(self, args):
        self.vorn.tool_run(['-i', self.device] + list(args))
        # A set can move other items (an address prunes routes and the gateway outside its
        # segment): the next item is compared with a fresh read.
        self.stale = True

    def record(self, name, reader, before, predicted):
        self.managed.append((name, reader))
        self.before[name] = before
        self.after[name] = predicted

    def finish(self):
        """Reads `after` back from the device when something ran; warns where it still differs."""
        if self.vorn.check_mode or self.vorn.ran == 0:
            return
        predicted = self.after
        self.view = self.vorn.device(self.device)
        self.after = {}
        for name, reader in self.managed:
            self.after[name] = reader(self.view['items'])
            if self.after[name] != predicted[name]:
                self.vorn.module.warn(
                    'device %d %s: after the change vornctl reads %s, not %s (see vornctl lint '
                    'and vornctl verify)' % (self.device, name, self.after[name], predicted[name]))

    def diff(self):
        return {'before': self.before, 'after': self.after}


def saved_live(item, norm):
    return {'saved': norm(item.get('saved')), 'live': norm(item.get('live'))}


def sync_value(rec, name, key, desired, norm, args):
    """One value item: set it with ARGS unless both its saved and live values equal DESIRED."""
    def reader(items):
        return shown(saved_live(items[key], norm))

    items = rec.items()
    current = saved_live(items[key], norm)
    want = norm(desired)
    predicted = {'saved': want, 'live': want}
    if current != predicted:
        rec.run(args)
    rec.record(name, reader, shown(current), shown(predicted))


def shown(value):
    """A diff-friendly copy: tuples as lists, numbers and addresses as text."""
    if isinstance(value, dict):
        return dict((k, shown(v)) for k, v in value.items())
    if isinstance(value, (list, tuple)):
        return [shown(v) for v in value]
    if value is None or isinstance(value, str):
        return value
    return text(value)
