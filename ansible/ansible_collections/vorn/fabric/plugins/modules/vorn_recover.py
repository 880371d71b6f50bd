#!/usr/bin/python
# -*- coding: utf-8 -*-
# vorn.fabric.vorn_recover: replays the saved settings onto one device or every device.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: vorn_recover
short_description: Replay the saved port settings onto one accelerator device or all of them
version_added: "1.0.0"
description:
  - Runs the recovery of C(vorn_tool), which sends every setting saved in C(/etc/vorn.conf) to
    the device, in a fixed order, as after a device reset or a reboot.
  - With I(device), C(vorn_tool -i DEVICE -cfg recovery); with I(all=true),
    C(vorn_tool -a -cfg recovery), whose C(dev:N recovery success) lines tell which devices
    recovered (a device without one failed).
  - With I(only_drifted=true) only the devices that C(vornctl show --json) finds in drift (a
    saved item the device does not hold) are recovered, one C(vorn_tool -i N -cfg recovery)
    each, so the task changes nothing on a host that agrees.
  - Reports each device with the recovery status it keeps afterwards. The task is changed when
    a recovery ran; a failed recovery fails the task with the tool's own message and exit
    status, after the other devices were recovered.
author:
  - vorn_tool maintainers
extends_documentation_fragment:
  - vorn.fabric.common
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
    details: Reports the devices and commands that would be recovered and runs nothing.
  diff_mode:
    support: none
  platform:
    platforms: posix
options:
  device:
    description:
      - Physical id of the device to recover. Give this or I(all=true).
    type: int
  all:
    description:
      - Recover every device.
    type: bool
  only_drifted:
    description:
      - Recover only the devices with an item in drift, read with C(vornctl show --json).
    type: bool
    default: false
seealso:
  - module: vorn.fabric.vorn_facts
'''

EXAMPLES = r'''
- name: After a reset of device 3
  vorn.fabric.vorn_recover:
    device: 3

- name: Every device, as vorn-recovery.service does at boot
  vorn.fabric.vorn_recover:
    all: true

- name: Only the devices that lost a saved setting (changes nothing when all agree)
  vorn.fabric.vorn_recover:
    all: true
    only_drifted: true
  register: recovery

- name: Which devices were recovered
  ansible.builtin.debug:
    msg: "{{ recovery.devices | selectattr('recovered') | map(attribute='phy_id') | list }}"
'''

RETURN = r'''
devices:
  description: One entry per device considered, by physical id.
  returned: always
  type: list
  elements: dict
  contains:
    phy_id:
      description: Physical id.
      type: int
    logic_id:
      description: Logical id (the number C(dev:N recovery success) prints).
      type: int
    drift:
      description: The items in drift before the recovery.
      type: list
      elements: str
    recovered:
      description: Whether a recovery ran (or would run, in check mode) on the device.
      type: bool
    result:
      description: C(success), C(failed), C(would-run) (check mode) or C(skipped) (not in drift).
      type: str
    recovery_status:
      description: The recovery status the device keeps after the run (C(NONE), C(START),
        C(FAIL), C(SUCCESS)); absent in check mode and for a device not read.
      type: str
  sample: [{"phy_id": 0, "logic_id": 0, "drift": ["mtu"], "recovered": true, "result": "success", "recovery_status": "SUCCESS"}]
failed_devices:
  description: Physical ids of the devices whose recovery failed.
  returned: failed
  type: list
  elements: int
  sample: [0]
commands:
  description: The C(vorn_tool) commands run (in check mode, that would run).
  returned: always
  type: list
  elements: str
  sample: ["vorn_tool -a -cfg recovery"]
rc:
  description: Exit status of the failed recovery.
  returned: failed
  type: int
stdout:
  description: Standard output of the failed run (the devices it recovered).
  returned: failed
  type: str
stderr:
  description: Standard error of the failed run.
  returned: failed
  type: str
  sample: "permission denied: pls check this cmd run permission.\nCommand execute failed!"
'''

import re

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.vorn.fabric.plugins.module_utils.vorn import (
    COMMON_ARGS, Vorn, tool_message)

SUCCESS_LINE = re.compile(r'^dev:(\d+) recovery success\s*$', re.MULTILINE)


def drifted(dev):
    return sorted(name for name, item in (dev.get('items') or {}).items()
                  if item.get('state') == 'drift')


def main():
    argument_spec = dict(
        device=dict(type='int'),
        all=dict(type='bool'),
        only_drifted=dict(type='bool', default=False),
    )
    argument_spec.update(COMMON_ARGS)
    module = AnsibleModule(argument_spec=argument_spec, supports_check_mode=True,
                           mutually_exclusive=[('device', 'all')],
                           required_one_of=[('device', 'all')])
    p = module.params
    if p['device'] is None and not p['all']:
        module.fail_json(msg='give device, or all=true')

    vorn = Vorn(module)
    doc = vorn.show(p['device'])
    report = []
    for dev in doc['devices']:
        drift = drifted(dev)
        wanted = bool(drift) or not p['only_drifted']
        report.append(dict(phy_id=dev['phy_id'], logic_id=dev['logic_id'], drift=drift,
                           recovered=wanted, result='would-run' if wanted else 'skipped'))
    targets = [r for r in report if r['recovered']]

    failures = []  # (rc, out, err, cmd) of each failed run
    if targets and p['all'] and not p['only_drifted']:
        rc, out, err, cmd = vorn.tool_exec(['-a', '-cfg', 'recovery'])
        if not module.check_mode:
            ok = set(int(n) for n in SUCCESS_LINE.findall(out))
            for r in targets:
                r['result'] = 'success' if r['logic_id'] in ok else 'failed'
            if rc != 0:
                failures.append((rc, out, err, cmd))
    else:
        for r in targets:
            rc, out, err, cmd = vorn.tool_exec(['-i', r['phy_id'], '-cfg', 'recovery'])
            if not module.check_mode:
                r['result'] = 'success' if rc == 0 else 'failed'
                if rc != 0:
                    failures.append((rc, out, err, cmd))

    if targets and not module.check_mode:
        after = dict((d['phy_id'], d) for d in vorn.show(p['device'])['devices'])
        for r in targets:
            status = (after.get(r['phy_id']) or {}).get('recovery_status')
            if status:
                r['recovery_status'] = status.get('text')

    result = dict(changed=vorn.changed, commands=vorn.commands, devices=report)
    if failures:
        rc, out, err, cmd = failures[0]
        failed = [r['phy_id'] for r in targets if r['result'] == 'failed']
        # The tool's own message: its standard error (the success lines of the other devices
        # are in `devices`), or all it printed when that is empty.
        msgs = [e.strip() or tool_message(o, e, c) for c, o, e, _ in failures]
        result.update(rc=rc, stdout=out, stderr=err, cmd=cmd)
        module.fail_json(msg='\n'.join(msgs), failed_devices=failed, **result)
    module.exit_json(**result)


if __name__ == '__main__':
    main()
