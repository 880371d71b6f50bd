# -*- coding: utf-8 -*-
# The resource engine of vorn.fabric.vorn_devices: the desired settings of a host's devices,
# by state (merged, replaced, overridden, deleted, gathered), turned into one `vornctl apply`
# document; the run's report turned into the module's result.
#
# The items are named as `vornctl show --json` names them; each module option maps to one item,
# or (traffic_classes) to the pair of items its command sets together.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json

from ansible_collections.vorn.fabric.plugins.module_utils.vorn import (
    SHOW_SCHEMA, SHOW_SCHEMA_VERSION, Vorn, _quote, tool_message)

# option: the items it sets, in the order vornctl replays them.
OPTION_ITEMS = (
    ('address', ('address',)),
    ('netmask', ('netmask',)),
    ('gateway', ('gateway',)),
    ('netdetect', ('netdetect',)),
    ('mtu', ('mtu',)),
    ('mac', ('mac_addr',)),
    ('dscp_map', ('dscp_tc',)),
    ('bw_limit', ('bw_limit',)),
    ('routes', ('routes',)),
    ('udp_port', ('roce_port',)),
    ('pfc_bitmap', ('bitmap',)),
    ('traffic_classes', ('tc_bw', 'tc_mode')),
    ('priority_map', ('prio_tc',)),
)
OPTIONS = tuple(o for o, _ in OPTION_ITEMS)
ITEM_OPTION = dict((i, o) for o, items in OPTION_ITEMS for i in items)

TC_MODES = {'strict': 0, 'ets': 1}


def _number(value):
    try:
        return int(value)
    except (TypeError, ValueError):
        return value


def _list8(value):
    """A list of eight from an array or the "a,b,c" text."""
    if value is None:
        return None
    parts = value if isinstance(value, list) else str(value).split(',')
    return [_number(v) for v in parts]


def _dscp(value):
    """The DSCP map {dscp: tc} from an object, or the "d:t,d:t" text."""
    if value is None:
        return None
    if isinstance(value, dict):
        return dict((_number(k), _number(v)) for k, v in value.items())
    if isinstance(value, list):
        return dict((_number(e.get('dscp')), _number(e.get('tc'))) for e in value)
    out = {}
    for entry in str(value).split(','):
        dscp, sep, tc = entry.partition(':')
        if sep:
            out[_number(dscp)] = _number(tc)
    return out


def _route(entry):
    """A route as {address, netmask, gateway} from an object or its keyword text."""
    if isinstance(entry, dict):
        return dict((k, entry.get(k)) for k in ('address', 'netmask', 'gateway'))
    words = str(entry).split()
    return dict(zip(words[0::2], words[1::2]))


def desired_items(entry, options):
    """The items of the OPTIONS given in ENTRY (a config entry), in the document's forms."""
    items = {}
    for option in options:
        value = entry.get(option)
        if option == 'traffic_classes':
            items['tc_bw'] = [c['bandwidth'] for c in value]
            items['tc_mode'] = [TC_MODES.get(c['mode'], c['mode']) for c in value]
        elif option == 'dscp_map':
            items['dscp_tc'] = dict((str(k), _number(v)) for k, v in value.items())
        elif option == 'routes':
            items['routes'] = [_route(r) for r in value]
        else:
            items[OPTION_ITEMS[OPTIONS.index(option)][1][0]] = value
    return dict((k, {'saved': v}) for k, v in items.items())


def removed_items(options):
    return dict((item, {'saved': None}) for option in options
                for item in OPTION_ITEMS[OPTIONS.index(option)][1])


def gathered(doc):
    """The config of every device of a show document, in the module's options."""
    config = []
    for dev in doc.get('devices', []):
        items = dev.get('items') or {}

        def saved(name):
            return (items.get(name) or {}).get('saved')
        entry = {'device': dev.get('phy_id')}
        for option, names in OPTION_ITEMS:
            value = saved(names[0])
            if value is None:
                continue
            if option == 'traffic_classes':
                modes = _list8(saved('tc_mode')) or []
                names_of = dict((v, k) for k, v in TC_MODES.items())
                value = [{'bandwidth': b, 'mode': names_of.get(m, m)}
                         for b, m in zip(_list8(value), modes)]
            elif option == 'dscp_map':
                value = _dscp(value)
            elif option in ('pfc_bitmap', 'priority_map'):
                value = _list8(value)
            elif option == 'routes':
                value = [_route(r) for r in value]
            elif option in ('mtu', 'udp_port', 'bw_limit'):
                value = _number(value)
            entry[option] = value
        config.append(entry)
    return config


class Resource(object):
    """One run of the resource module on one host."""

    def __init__(self, module):
        self.module = module
        self.vorn = Vorn(module)
        self.params = module.params

    def given(self, entry):
        return [o for o in OPTIONS if entry.get(o) is not None]

    def host_devices(self):
        return [d['phy_id'] for d in self.vorn.show()['devices']]

    def document(self):
        """The vornctl apply document of the state asked for."""
        state = self.params['state']
        config = self.params['config'] or []
        devices = {}
        ids = [e['device'] for e in config]
        if len(set(ids)) != len(ids):
            self.vorn.fail('a device is listed twice in config')
        for entry in config:
            given = self.given(entry)
            if state == 'merged':
                items = desired_items(entry, given)
            elif state in ('replaced', 'overridden'):
                items = removed_items([o for o in OPTIONS if o not in given])
                items.update(desired_items(entry, given))
            else:  # deleted
                items = removed_items(given or OPTIONS)
            devices[entry['device']] = items
        if state == 'overridden' or (state == 'deleted' and not config):
            for phy_id in self.host_devices():
                devices.setdefault(phy_id, removed_items(OPTIONS))
        return {
            'schema': SHOW_SCHEMA, 'schema_version': SHOW_SCHEMA_VERSION,
            'devices': [{'phy_id': k, 'items': v} for k, v in sorted(devices.items())],
        }

    def apply(self, doc):
        ctl = self.vorn.ctl
        self.vorn._require(ctl, 'vornctl_path')
        argv = [ctl, 'apply', '--json', '-']
        if self.module.check_mode:
            argv.insert(3, '--check')
        rc, out, err = self.module.run_command(argv, data=json.dumps(doc),
                                               expand_user_and_vars=False)
        try:
            report = json.loads(out)
        except ValueError:
            report = None
        if rc != 0 or report is None:
            extra = dict(rc=rc, stdout=out, stderr=err, cmd=_quote(argv))
            if report is not None:
                extra.update(changes=report.get('changes', []),
                             changed=bool(report.get('changed')))
            self.module.fail_json(msg=tool_message(out if report is None else '', err, rc),
                                  **extra)
        return report

    def run(self):
        if self.params['state'] == 'gathered':
            self.module.exit_json(changed=False, gathered=gathered(self.vorn.show()))
        report = self.apply(self.document())
        changes = report.get('changes', [])
        result = dict(changed=bool(changes), changes=changes,
                      commands=[c for ch in changes for c in ch.get('commands', [])])
        for ch in changes:
            if ch.get('note'):
                self.module.warn('device %s %s: the saved line is removed; %s'
                                 % (ch['phy_id'], ch['item'], ch['note']))
        if self.module._diff:
            before, after = {}, {}
            for ch in changes:
                dev = 'device %s' % ch['phy_id']
                before.setdefault(dev, {})[ch['item']] = ch['old']
                new = ch.get('after') or {
                    'saved': ch.get('new'),
                    'live': ch['old']['live'] if ch.get('note') else ch.get('new')}
                after.setdefault(dev, {})[ch['item']] = new
            result['diff'] = dict(before=before, after=after)
        self.module.exit_json(**result)
