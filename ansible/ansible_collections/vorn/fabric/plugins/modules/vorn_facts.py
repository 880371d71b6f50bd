#!/usr/bin/python
# -*- coding: utf-8 -*-
# vorn.fabric.vorn_facts: every device's settings, live and saved, as host facts.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: vorn_facts
short_description: Every accelerator device's port settings, live and saved, as facts
version_added: "1.0.0"
description:
  - Runs C(vornctl show --json) on the managed host and returns its document as the fact
    C(ansible_facts.vorn) (C(vorn) in the host's variables).
  - For each device, by physical id, the fact holds its health, link, recovery status, TLS
    state and every setting C(vorn_tool) saves for recovery, each with its saved value (as
    C(/etc/vorn.conf) answers it), its live value (as the device holds it) and a state
    (C(agree), C(drift), C(not-saved), C(unusable), C(unknown)).
  - The document is described by C(docs/vornctl.schema.json) and C(docs/vornctl.md) of
    C(vorn_tool); the module checks its schema name and version.
  - Reads only; never changes a device or the file.
author:
  - vorn_tool maintainers
extends_documentation_fragment:
  - vorn.fabric.common
  - ansible.builtin.action_common_attributes
  - ansible.builtin.action_common_attributes.facts
attributes:
  check_mode:
    support: full
    details: Reads as in a normal run.
  diff_mode:
    support: none
  facts:
    support: full
  platform:
    platforms: posix
options:
  device:
    description:
      - Physical id of one device to read; every device when left out.
    type: int
seealso:
  - module: vorn.fabric.vorn_devices
  - module: vorn.fabric.vorn_recover
'''

EXAMPLES = r'''
- name: Read every device
  vorn.fabric.vorn_facts:

- name: Report the drifted items of every device
  ansible.builtin.debug:
    msg: >-
      device {{ item.phy_id }}:
      {{ item['items'] | dict2items | selectattr('value.state', 'equalto', 'drift')
         | map(attribute='key') | list }}
  loop: "{{ ansible_facts.vorn.devices }}"
  loop_control:
    label: "{{ item.phy_id }}"

- name: The MTU device 3 holds
  ansible.builtin.debug:
    msg: "{{ (ansible_facts.vorn.devices | selectattr('phy_id', 'equalto', 3) | first)['items'].mtu.live }}"
'''

RETURN = r'''
ansible_facts:
  description: Facts added to the host.
  returned: always
  type: complex
  contains:
    vorn:
      description:
        - The document of C(vornctl show --json) (schema C(vornctl-show), version 2), typed;
          numbers as numbers, lists as arrays, routes, ARP entries and policy lines as objects,
          null for what is absent.
        - C(devices) lists the devices by physical id; each has C(phy_id), C(logic_id),
          C(health), C(readable), C(recovery_status), C(link), C(vnic), C(tls) and C(items).
        - C(items) maps every saved item (C(address), C(netmask), C(gateway), C(netdetect),
          C(mtu), C(mac_addr), C(dscp_tc), C(static_speed), C(auto_adapt), C(bw_limit),
          C(routes), C(roce_port), C(arp), C(ip_rules), C(ip_routes), C(bitmap), C(tc_bw),
          C(tc_mode), C(prio_tc), C(encoding), C(send_arp_period), C(send_arp_status)) to its
          C(saved), C(live), C(state) and C(differences).
      returned: always
      type: dict
      sample:
        schema: vornctl-show
        schema_version: 2
        generated: "2026-11-22T02:01:16Z"
        config: {path: /etc/vorn.conf, readable: true, error: null}
        devices:
          - phy_id: 0
            logic_id: 0
            health: {value: 0, text: ok}
            readable: true
            recovery_status: {value: 3, text: SUCCESS}
            link: up
            vnic: {address: 192.168.1.199, netmask: 255.255.255.0}
            items:
              mtu: {key: mtu_0, kind: value, type: number, buffer: 5, saved: 9000, live: 1500,
                    state: drift, differences: [{saved: 9000, live: 1500}]}
              routes: {key: route_address_A_netmask_M_0, kind: list, type: entries,
                       saved: [{address: 20.0.0.0, netmask: 255.0.0.0, gateway: 10.0.0.1}],
                       live: [], state: drift,
                       differences: [{saved: {address: 20.0.0.0, netmask: 255.0.0.0,
                                              gateway: 10.0.0.1}, live: null}]}
        absent: []
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.vorn.fabric.plugins.module_utils.vorn import COMMON_ARGS, Vorn


def main():
    argument_spec = dict(device=dict(type='int'))
    argument_spec.update(COMMON_ARGS)
    module = AnsibleModule(argument_spec=argument_spec, supports_check_mode=True)
    doc = Vorn(module).show(module.params['device'])
    module.exit_json(changed=False, ansible_facts=dict(vorn=doc))


if __name__ == '__main__':
    main()
