#!/usr/bin/python
# -*- coding: utf-8 -*-
# vorn.fabric.vorn_qos: the RoCE QoS of one device's port, applied with vorn_tool.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: vorn_qos
short_description: DSCP map, PFC, traffic classes, priority map and shaper of one device's port
version_added: "1.0.0"
description:
  - Brings the RoCE QoS settings of one accelerator device to the desired values, idempotently.
  - As M(vorn.fabric.vorn_port) does, it reads the device's live and saved values with
    C(vornctl show --json -i DEVICE) and runs C(vorn_tool) only for an item whose live value
    B(or) saved value differs from the desired one.
  - Lists of eight compare number by number (C(09) is C(9)); the DSCP map compares only at the
    DSCP values given.
  - Items are applied in the order recovery replays them (DSCP map, shaper, PFC, traffic
    classes, priority map). Options left out are not managed.
author:
  - vorn_tool maintainers
extends_documentation_fragment:
  - vorn.fabric.common
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
    details: Reports the C(vorn_tool) commands that would run in C(commands) and changes nothing.
  diff_mode:
    support: full
    details: Saved and live value of every managed item, before and after.
  platform:
    platforms: posix
options:
  device:
    description:
      - Physical id of the device, as C(vorn_tool -i) and C(vornctl show -i) take it.
    type: int
    required: true
  dscp_map:
    description:
      - "Traffic class of DSCP values, as a mapping of DSCP value (0 to 63) to traffic class
        (0 to 7), for example C({26: 3, 46: 5})."
      - Each entry whose class on the device or in the saved map differs is set with
        C(vorn_tool -dscp_to_tc -s dscp D tc T). DSCP values not listed are left as they are.
    type: dict
  bw_limit:
    description:
      - Bandwidth limit of the port shaper, Mbit/s (C(vorn_tool -shaping -s bw_limit N)); the
        tool takes 1 to 400000.
    type: int
  pfc_bitmap:
    description:
      - PFC state of priorities 0 to 7, eight values of C(1) (on) or C(0) (off), for example
        C([0, 0, 0, 1, 0, 0, 0, 0]) (C(vorn_tool -pfc -s bitmap 0,0,0,1,0,0,0,0)).
    type: list
    elements: int
  traffic_classes:
    description:
      - Bandwidth share and scheduling mode of traffic classes 0 to 7, eight entries in class
        order (C(vorn_tool -tc_cfg -s tc_bw ... tc_mode ...)).
      - The tool requires the weighted classes to add up to 100 and a strict class to take 0.
      - Both lists are set together when either differs.
    type: list
    elements: dict
    suboptions:
      bandwidth:
        description: Percent of the port's bandwidth, 0 to 100.
        type: int
        required: true
      mode:
        description:
          - C(strict) (sent to the tool as 0) or C(ets), weighted (1). The numbers C(0) and C(1)
            are taken as well; any other value is given to the tool as it is, which refuses it.
        type: raw
        default: ets
  priority_map:
    description:
      - Traffic class (0 to 7) of priorities 0 to 7, eight values in priority order, for
        example C([0, 1, 2, 3, 4, 5, 6, 7]) (C(vorn_tool -prio_tc -s prio_tc ...)).
    type: list
    elements: int
seealso:
  - module: vorn.fabric.vorn_port
  - module: vorn.fabric.vorn_facts
'''

EXAMPLES = r'''
- name: Lossless RoCE on priority 3, DSCP 26 into class 3, CNPs (DSCP 48) into class 6
  vorn.fabric.vorn_qos:
    device: 0
    dscp_map:
      26: 3
      48: 6
    pfc_bitmap: [0, 0, 0, 1, 0, 0, 0, 0]
    priority_map: [0, 1, 2, 3, 4, 5, 6, 7]
    traffic_classes:
      - {bandwidth: 0, mode: strict}
      - {bandwidth: 10}
      - {bandwidth: 10}
      - {bandwidth: 50}
      - {bandwidth: 10}
      - {bandwidth: 10}
      - {bandwidth: 0, mode: strict}
      - {bandwidth: 10}
    bw_limit: 200000

- name: The same QoS on every device the facts list
  vorn.fabric.vorn_qos:
    device: "{{ item.phy_id }}"
    pfc_bitmap: [0, 0, 0, 1, 0, 0, 0, 0]
  loop: "{{ ansible_facts.vorn.devices }}"
  loop_control:
    label: "{{ item.phy_id }}"
'''

RETURN = r'''
commands:
  description:
    - The C(vorn_tool) commands run, in order; in check mode, those that would run. Empty when
      the device already agreed.
  returned: always
  type: list
  elements: str
  sample: ["vorn_tool -i 0 -dscp_to_tc -s dscp 26 tc 3", "vorn_tool -i 0 -pfc -s bitmap 0,0,0,1,0,0,0,0"]
device:
  description: Physical id of the device.
  returned: always
  type: int
  sample: 0
diff:
  description:
    - Saved and live value of each managed item before and after (C(dscp_map) only at the DSCP
      values given, C(traffic_classes) as the C(tc_bw) and C(tc_mode) lists). After a change
      the after side is read back from the device; in check mode it is the prediction.
  returned: in diff mode
  type: dict
  sample: {"before": {"pfc_bitmap": {"saved": null, "live": ["0", "0", "0", "0", "0", "0", "0", "0"]}}}
rc:
  description: Exit status of the failed C(vorn_tool) or C(vornctl) run.
  returned: failed
  type: int
  sample: 10
stdout:
  description: Standard output of the failed run.
  returned: failed
  type: str
stderr:
  description: Standard error of the failed run.
  returned: failed
  type: str
  sample: "The value of dscp you input is out of the valid range!"
cmd:
  description: The failed command line.
  returned: failed
  type: str
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.vorn.fabric.plugins.module_utils.vorn import (
    COMMON_ARGS, Reconciler, Vorn, dscp_map_of, join_list, norm_list, norm_number, saved_live,
    shown, sync_value, text)

MODES = {'strict': 0, 'ets': 1, 'weighted': 1}


def mode_value(mode):
    if isinstance(mode, str) and mode.strip().lower() in MODES:
        return MODES[mode.strip().lower()]
    return mode


def sync_dscp(rec, wanted):
    want = dict((norm_number(d), norm_number(t)) for d, t in wanted.items())

    def current_of(items):
        item = items['dscp_tc']
        saved, live = dscp_map_of(item.get('saved')), dscp_map_of(item.get('live'))
        return {'saved': dict((d, saved.get(d)) for d in want),
                'live': dict((d, live.get(d)) for d in want)}

    current = current_of(rec.items())
    # One command per DSCP value, in ascending order (a value that is no number last, as
    # written, for the tool to refuse).
    def order(dscp):
        n = norm_number(dscp)
        return (0, n, '') if isinstance(n, int) else (1, 0, text(dscp))

    for dscp in sorted(wanted, key=order):
        d, t = norm_number(dscp), norm_number(wanted[dscp])
        if current['saved'][d] != t or current['live'][d] != t:
            rec.run(['-dscp_to_tc', '-s', 'dscp', dscp, 'tc', wanted[dscp]])
    rec.record('dscp_map', lambda items: shown(current_of(items)), shown(current),
               shown({'saved': want, 'live': want}))


def sync_traffic_classes(rec, classes):
    bw = [c['bandwidth'] for c in classes]
    modes = [mode_value(c['mode']) for c in classes]

    def current_of(items):
        return {'tc_bw': saved_live(items['tc_bw'], norm_list),
                'tc_mode': saved_live(items['tc_mode'], norm_list)}

    current = current_of(rec.items())
    predicted = {'tc_bw': {'saved': norm_list(bw), 'live': norm_list(bw)},
                 'tc_mode': {'saved': norm_list(modes), 'live': norm_list(modes)}}
    if current != predicted:
        rec.run(['-tc_cfg', '-s', 'tc_bw', join_list(bw), 'tc_mode', join_list(modes)])
    rec.record('traffic_classes', lambda items: shown(current_of(items)), shown(current),
               shown(predicted))


def main():
    argument_spec = dict(
        device=dict(type='int', required=True),
        dscp_map=dict(type='dict'),
        bw_limit=dict(type='int'),
        pfc_bitmap=dict(type='list', elements='int'),
        traffic_classes=dict(type='list', elements='dict', options=dict(
            bandwidth=dict(type='int', required=True),
            mode=dict(type='raw', default='ets'),
        )),
        priority_map=dict(type='list', elements='int'),
    )
    argument_spec.update(COMMON_ARGS)
    module = AnsibleModule(argument_spec=argument_spec, supports_check_mode=True)
    p = module.params

    vorn = Vorn(module)
    rec = Reconciler(vorn, p['device'])
    if p['dscp_map']:
        sync_dscp(rec, p['dscp_map'])
    if p['bw_limit'] is not None:
        sync_value(rec, 'bw_limit', 'bw_limit', p['bw_limit'], norm_number,
                   ['-shaping', '-s', 'bw_limit', p['bw_limit']])
    if p['pfc_bitmap'] is not None:
        sync_value(rec, 'pfc_bitmap', 'bitmap', p['pfc_bitmap'], norm_list,
                   ['-pfc', '-s', 'bitmap', join_list(p['pfc_bitmap'])])
    if p['traffic_classes'] is not None:
        sync_traffic_classes(rec, p['traffic_classes'])
    if p['priority_map'] is not None:
        sync_value(rec, 'priority_map', 'prio_tc', p['priority_map'], norm_list,
                   ['-prio_tc', '-s', 'prio_tc', join_list(p['priority_map'])])
    rec.finish()

    result = dict(changed=vorn.changed, commands=vorn.commands, device=p['device'])
    if module._diff:
        result['diff'] = rec.diff()
    module.exit_json(**result)


if __name__ == '__main__':
    main()
