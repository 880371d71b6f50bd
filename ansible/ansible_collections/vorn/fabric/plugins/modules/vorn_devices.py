#!/usr/bin/python
# -*- coding: utf-8 -*-
# vorn.fabric.vorn_devices: the port settings and QoS of a host's devices, as one resource,
# applied by one run of vornctl apply.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: vorn_devices
short_description: Resource module for the RoCE port settings and QoS of a host's devices
version_added: "2.0.0"
description:
  - Manages the address, gateway, net-detect address, MTU, MAC, UDP port, static routes and
    QoS of the accelerator devices of one host, as one resource, in one module run per host.
  - The desired settings of every device listed go to one run of C(vornctl apply), which reads
    the host once, makes the least set of changes with the tool's own commands under its
    setting lock, saves them in C(/etc/vorn.conf) and reads them back. An item is changed when
    its value on the device (live) B(or) its saved value differs from the desired one.
  - The run is one transaction. When a change fails (a value the tool refuses, a device that
    refuses it), every change already made on the host is undone, the devices set back and
    C(/etc/vorn.conf) put back as it was, and the task fails naming the device and item with
    the tool's own message.
  - Values compare as C(vornctl) compares them, addresses and numbers by value and MAC
    addresses without case.
author:
  - vorn_tool maintainers
extends_documentation_fragment:
  - vorn.fabric.common
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
    details: C(vornctl apply --check) reports the changes and the commands they would run in
      C(changes) and C(commands), and changes nothing.
  diff_mode:
    support: full
    details: Saved and live value of every item that changes, before and after.
  platform:
    platforms: posix
options:
  config:
    description:
      - The devices of the host and their desired settings. Options left out of an entry are
        not managed with I(state=merged), and removed with I(state=replaced) and
        I(state=overridden).
    type: list
    elements: dict
    suboptions:
      device:
        description:
          - Physical id of the device, as C(vorn_tool -i) and C(vornctl show -i) take it.
        type: int
        required: true
      address:
        description:
          - IPv4 address of the port, given together with I(netmask). Setting it also drops
            the saved gateway and routes whose gateway leaves the new segment, as the tool does.
        type: str
      netmask:
        description:
          - Netmask of the port, given together with I(address).
        type: str
      gateway:
        description:
          - Default gateway; needs a saved address in its segment.
          - A device group (devices 0 to 3, 4 to 15 on a server board) holds one default
            gateway; setting it on one device moves it from another device of the group. Give it
            to one device per group.
        type: str
      netdetect:
        description:
          - Address of the network-detection object.
        type: str
      mtu:
        description:
          - MTU of the port; the tool takes 68 to 9702.
        type: int
      mac:
        description:
          - MAC address of the port, C(XX:XX:XX:XX:XX:XX).
        type: str
      udp_port:
        description:
          - RoCE UDP port.
        type: int
      routes:
        description:
          - The static routes of the device. With I(state=merged) the routes listed are added
            (or their gateway changed) and the others kept; with I(state=replaced) and
            I(state=overridden) the saved routes not listed are deleted as well.
        type: list
        elements: dict
        suboptions:
          address:
            description: Destination network.
            type: str
            required: true
          netmask:
            description: Netmask of the destination.
            type: str
            required: true
          gateway:
            description: Next hop, in the port's segment.
            type: str
            required: true
      dscp_map:
        description:
          - "Traffic class of DSCP values, as a mapping of DSCP value (0 to 63) to traffic class
            (0 to 7), for example C({26: 3, 48: 6}). Saved entries not listed are removed from
            the saved map."
        type: dict
      bw_limit:
        description:
          - Bandwidth limit of the port shaper, Mbit/s; the tool takes 1 to 400000.
        type: int
      pfc_bitmap:
        description:
          - PFC state of priorities 0 to 7, eight values of C(1) (on) or C(0) (off).
        type: list
        elements: int
      traffic_classes:
        description:
          - Bandwidth share and scheduling mode of traffic classes 0 to 7, eight entries in
            class order. The weighted classes add up to 100 and a strict class takes 0.
        type: list
        elements: dict
        suboptions:
          bandwidth:
            description: Percent of the port's bandwidth, 0 to 100.
            type: int
            required: true
          mode:
            description: C(strict) or C(ets) (weighted).
            type: str
            choices: [strict, ets]
            default: ets
      priority_map:
        description:
          - Traffic class (0 to 7) of priorities 0 to 7, eight values in priority order.
        type: list
        elements: int
  state:
    description:
      - C(merged) sets the options given and leaves the others as they are.
      - C(replaced) sets the options given of each device listed and removes the others of
        these devices.
      - C(overridden) does what C(replaced) does, and removes every option of the devices of
        the host that are not listed.
      - C(deleted) removes the options given of each device listed (every option when an
        entry gives only I(device); every device of the host when I(config) is empty).
      - C(gathered) returns the saved settings of every device of the host in I(gathered), in
        the form of I(config), and changes nothing.
      - To remove an item is to remove its saved line from C(/etc/vorn.conf), so that recovery
        no longer replays it. Routes are deleted from the device as well. The other items
        (address and netmask, gateway, net-detect address, MTU, MAC, UDP port, the DSCP map,
        the shaper, PFC, traffic classes and priority map) cannot be unset on the device by
        any command; the device keeps its value until a reset, and the module says so in a
        warning.
    type: str
    choices: [merged, replaced, overridden, deleted, gathered]
    default: merged
notes:
  - The option I(vorn_tool_path) is taken, so that one C(module_defaults) serves every module
    of the collection, and not used.
  - An option without a value (C(null)) is not given.
seealso:
  - module: vorn.fabric.vorn_facts
  - module: vorn.fabric.vorn_recover
'''

EXAMPLES = r'''
- name: Address, MTU and a route on devices 0 and 1, the rest as it is
  vorn.fabric.vorn_devices:
    config:
      - device: 0
        address: 10.10.0.11
        netmask: 255.255.255.0
        gateway: 10.10.0.1
        mtu: 9000
      - device: 1
        address: 10.10.1.11
        netmask: 255.255.255.0
        mtu: 9000
        routes:
          - {address: 10.20.0.0, netmask: 255.255.0.0, gateway: 10.10.1.1}
    state: merged

- name: Lossless RoCE on priority 3, and nothing else saved on device 2
  vorn.fabric.vorn_devices:
    config:
      - device: 2
        dscp_map: {26: 3, 48: 6}
        pfc_bitmap: [0, 0, 0, 1, 0, 0, 0, 0]
    state: replaced

- name: No saved MTU on device 3 any more (the device keeps it until a reset)
  vorn.fabric.vorn_devices:
    config:
      - device: 3
        mtu: 9000
    state: deleted

- name: The saved settings of every device
  vorn.fabric.vorn_devices:
    state: gathered
  register: host_settings
'''

RETURN = r'''
changes:
  description:
    - One entry per item (or pair of items) changed; in check mode, per item that would
      change. Each has C(phy_id), C(item), C(old) (saved and live before), C(new), the
      C(commands) it runs, its C(outcome) (C(changed), C(would-change), C(failed),
      C(undone), C(not-run)), and C(after), read back from the device.
  returned: always, except with state gathered
  type: list
  elements: dict
  sample: [{"phy_id": 0, "item": "mtu", "old": {"saved": null, "live": "1500"}, "new": "9000",
            "commands": ["vorn_tool -i 0 -mtu -s size 9000"], "outcome": "changed",
            "after": {"saved": "9000", "live": "9000"}}]
commands:
  description:
    - The C(vorn_tool) command lines run in C(vornctl apply), in order; in check mode those
      that would run.
  returned: always, except with state gathered
  type: list
  elements: str
  sample: ["vorn_tool -i 0 -mtu -s size 9000"]
gathered:
  description: The saved settings of every device, in the form of I(config).
  returned: with state gathered
  type: list
  elements: dict
  sample: [{"device": 0, "mtu": 9000, "routes": []}]
rc:
  description: Exit status of the failed C(vornctl) run.
  returned: failed
  type: int
  sample: 2
stderr:
  description: Standard error of the failed run, the tool's message and the item that failed.
  returned: failed
  type: str
  sample: "vornctl apply: dev 5 mtu failed (0x200e): every change before it is undone"
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.vorn.fabric.plugins.module_utils.vorn import COMMON_ARGS
from ansible_collections.vorn.fabric.plugins.module_utils.vorn_resource import Resource


def main():
    route = dict(address=dict(type='str', required=True),
                 netmask=dict(type='str', required=True),
                 gateway=dict(type='str', required=True))
    traffic_class = dict(bandwidth=dict(type='int', required=True),
                         mode=dict(type='str', choices=['strict', 'ets'], default='ets'))
    device = dict(
        device=dict(type='int', required=True),
        address=dict(type='str'),
        netmask=dict(type='str'),
        gateway=dict(type='str'),
        netdetect=dict(type='str'),
        mtu=dict(type='int'),
        mac=dict(type='str'),
        udp_port=dict(type='int'),
        routes=dict(type='list', elements='dict', options=route),
        dscp_map=dict(type='dict'),
        bw_limit=dict(type='int'),
        pfc_bitmap=dict(type='list', elements='int'),
        traffic_classes=dict(type='list', elements='dict', options=traffic_class),
        priority_map=dict(type='list', elements='int'),
    )
    argument_spec = dict(
        config=dict(type='list', elements='dict', options=device),
        state=dict(type='str', default='merged',
                   choices=['merged', 'replaced', 'overridden', 'deleted', 'gathered']),
    )
    argument_spec.update(COMMON_ARGS)
    module = AnsibleModule(argument_spec=argument_spec, supports_check_mode=True)
    Resource(module).run()


if __name__ == '__main__':
    main()
