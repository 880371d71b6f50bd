#!/usr/bin/python
# -*- coding: utf-8 -*-
# vorn.fabric.vorn_port: the desired state of one device's RoCE port, applied with vorn_tool.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
---
module: vorn_port
short_description: Desired address, gateway, MTU, MAC, UDP port and routes of one device's port
version_added: "1.0.0"
description:
  - Brings the RoCE port of one accelerator device to the desired settings, idempotently.
  - The current values come from C(vornctl show --json -i DEVICE), both the value the device
    holds (live) and the value saved for recovery in C(/etc/vorn.conf) (saved). An item is set
    with C(vorn_tool) only when its live value B(or) its saved value differs from the desired
    one, so a device that was reset (live lost) and a file that was edited (saved lost) are both
    repaired, and a host that already agrees is left alone.
  - Values compare as C(vornctl) compares them, addresses and numbers by value and MAC
    addresses without case.
  - Items are applied in the order recovery replays them (address, gateway, net-detect address,
    MTU, MAC, UDP port, routes), each compared against a fresh read after the previous change,
    since an address change drops the saved gateway and routes that leave the new segment.
  - Options left out are not managed.
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
  address:
    description:
      - IPv4 address of the port (C(vorn_tool -ip -s address A netmask M)).
      - Setting it also drops the saved gateway and routes whose gateway leaves the new segment,
        as the tool does.
    type: str
  netmask:
    description:
      - Netmask of the port, given together with I(address).
    type: str
  gateway:
    description:
      - Default gateway (C(vorn_tool -gateway -s gateway G)); needs a saved address in its
        segment.
      - A device group (devices 0 to 3, 4 to 15 on a server board) holds one default gateway;
        setting it on one device moves it from another device of the group. Give it to one
        device per group, or two tasks will move it back and forth.
      - Agrees when the group's gateway is this value, held by this device, and saved for it.
    type: str
  netdetect:
    description:
      - Address of the network-detection object (C(vorn_tool -netdetect -s address A)).
    type: str
  mtu:
    description:
      - MTU of the port (C(vorn_tool -mtu -s size N)); the tool takes 68 to 9702.
    type: int
  mac:
    description:
      - MAC address of the port, C(XX:XX:XX:XX:XX:XX) (C(vorn_tool -mac -s mac M)).
    type: str
  udp_port:
    description:
      - RoCE UDP port (C(vorn_tool -udp -s port N)); the tool takes 4097 to 65535.
    type: int
  routes:
    description:
      - Static routes of the port, each identified by its destination I(address) and
        I(netmask).
      - A route C(present) agrees when the device holds it and it is saved, both with its
        gateway; a route saved with another gateway is deleted and added again.
      - A route C(absent) is deleted from the device and the file. C(vorn_tool) deletes only a
        route that is saved and on the device, so a route found in only one of them is first
        added there with its own gateway, then deleted.
      - Routes are removed before any is added, so a full table (32 routes) makes room first.
    type: list
    elements: dict
    suboptions:
      address:
        description: Destination address.
        type: str
        required: true
      netmask:
        description: Destination netmask.
        type: str
        required: true
      gateway:
        description: Gateway of the route; required when I(state=present).
        type: str
      state:
        description: Whether the route should be there.
        type: str
        choices: [present, absent]
        default: present
  purge:
    description:
      - With I(routes) given, also delete every saved route of the device that I(routes) does
        not list as C(present) (C(routes=[]) and C(purge=true) remove every saved route).
      - Routes the device holds but the file does not save are not purged (a reset drops them);
        list them as C(absent) to remove them.
    type: bool
    default: false
    aliases: [purge_routes]
seealso:
  - module: vorn.fabric.vorn_facts
  - module: vorn.fabric.vorn_qos
'''

EXAMPLES = r'''
- name: Address, gateway, MTU and two routes of device 0
  vorn.fabric.vorn_port:
    device: 0
    address: 10.0.0.2
    netmask: 255.255.255.0
    gateway: 10.0.0.1
    mtu: 9000
    routes:
      - address: 20.0.0.0
        netmask: 255.0.0.0
        gateway: 10.0.0.1
      - address: 30.1.0.0
        netmask: 255.255.0.0
        gateway: 10.0.0.1

- name: Only the listed routes stay saved on device 1; one unsaved route goes too
  vorn.fabric.vorn_port:
    device: 1
    routes:
      - address: 20.0.0.0
        netmask: 255.0.0.0
        gateway: 10.0.1.1
      - address: 40.0.0.0
        netmask: 255.0.0.0
        state: absent
    purge: true

- name: A test build against the emulator
  vorn.fabric.vorn_port:
    device: 2
    mtu: 4200
    udp_port: 4791
    vorn_tool_path: /src/vorn_tool/build-test/vorn_tool
    vornctl_path: /src/vorn_tool/build-test/vornctl
  environment:
    VORN_TEST_ROOT: /var/tmp/vorn-root
    KOPA_EMU_DIR: /var/tmp/kopa-emu
'''

RETURN = r'''
commands:
  description:
    - The C(vorn_tool) commands run, in order; in check mode, those that would run. Empty when
      the device already agreed.
  returned: always
  type: list
  elements: str
  sample: ["vorn_tool -i 0 -mtu -s size 9000", "vorn_tool -i 0 -route -a address 20.0.0.0 netmask 255.0.0.0 gateway 10.0.0.1"]
device:
  description: Physical id of the device.
  returned: always
  type: int
  sample: 0
diff:
  description:
    - Saved and live value of each managed item before and after (C(ip) holds the address and
      netmask; C(gateway) also the holder's physical id). After a change the after side is read
      back from the device; in check mode it is the prediction.
  returned: in diff mode
  type: dict
  sample: {"before": {"mtu": {"saved": null, "live": "1500"}}, "after": {"mtu": {"saved": "9000", "live": "9000"}}}
rc:
  description: Exit status of the failed C(vorn_tool) or C(vornctl) run.
  returned: failed
  type: int
  sample: 14
stdout:
  description: Standard output of the failed run.
  returned: failed
  type: str
stderr:
  description: Standard error of the failed run.
  returned: failed
  type: str
  sample: "The value of mtu you input is out of the valid range!"
cmd:
  description: The failed command line.
  returned: failed
  type: str
  sample: "/usr/sbin/vorn_tool -i 0 -mtu -s size 99999"
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.vorn.fabric.plugins.module_utils.vorn import (
    COMMON_ARGS, Reconciler, Vorn, in_segment, norm_ip, norm_mac, norm_number, route_key,
    route_text, routes_of, saved_live, sync_value, shown)


def sync_ip(rec, address, netmask):
    def reader(items):
        return shown({'address': saved_live(items['address'], norm_ip),
                       'netmask': saved_live(items['netmask'], norm_ip)})

    items = rec.items()
    current = {'address': saved_live(items['address'], norm_ip),
               'netmask': saved_live(items['netmask'], norm_ip)}
    want_a, want_m = norm_ip(address), norm_ip(netmask)
    predicted = {'address': {'saved': want_a, 'live': want_a},
                 'netmask': {'saved': want_m, 'live': want_m}}
    if current != predicted:
        rec.run(['-ip', '-s', 'address', address, 'netmask', netmask])
        rec.new_segment = (want_a, want_m)
    rec.record('ip', reader, shown(current), shown(predicted))


def sync_gateway(rec, gateway):
    def current_of(items):
        item = items['gateway']
        return {'saved': norm_ip(item.get('saved')), 'live': norm_ip(item.get('live')),
                'holder': item.get('holder')}

    current = current_of(rec.items())
    want = norm_ip(gateway)
    predicted = {'saved': want, 'live': want, 'holder': rec.device}
    if current != predicted:
        rec.run(['-gateway', '-s', 'gateway', gateway])
    rec.record('gateway', lambda items: shown(current_of(items)), shown(current),
               shown(predicted))


class RouteTable(object):
    """The device's routes, live and saved, kept up to date as commands run (or would run)."""

    def __init__(self, rec, saved, live):
        self.rec = rec
        self.saved = saved
        self.live = live

    def add(self, key, gateway):
        self.rec.run(['-route', '-a', 'address', key[0], 'netmask', key[1], 'gateway', gateway])
        self.saved[key] = gateway
        self.live[key] = gateway

    def delete(self, key):
        self.rec.run(['-route', '-d', 'address', key[0], 'netmask', key[1]])
        self.saved.pop(key, None)
        self.live.pop(key, None)

    def remove(self, key):
        saved, live = self.saved.get(key), self.live.get(key)
        if saved is None and live is None:
            return
        # vorn_tool deletes a route only when it is both saved and on the device: the half
        # that is missing is put back first, with the route's own gateway.
        if saved is None:
            self.add(key, live)
        elif live is None:
            self.add(key, saved)
        self.delete(key)

    def ensure(self, key, gateway):
        saved, live = self.saved.get(key), self.live.get(key)
        if saved == gateway and live == gateway:
            return
        # A saved route is added again only with its saved gateway (the tool refuses another).
        if saved is not None and saved != gateway:
            self.remove(key)
        self.add(key, gateway)

    def view(self):
        return {'saved': sorted(route_text(k, g) for k, g in self.saved.items()),
                'live': sorted(route_text(k, g) for k, g in self.live.items())}


def route_view(items):
    item = items['routes']
    return {'saved': sorted(route_text(k, g) for k, g in routes_of(item.get('saved')).items()),
            'live': sorted(route_text(k, g) for k, g in routes_of(item.get('live')).items())}


def sync_routes(rec, routes, purge):
    present = {}
    absent = []
    for route in routes:
        key = route_key(route['address'], route['netmask'])
        if key in present or key in absent:
            rec.vorn.fail('route %s netmask %s is listed twice' % key)
        if route['state'] == 'present':
            present[key] = norm_ip(route['gateway'])
        else:
            absent.append(key)

    item = rec.items()['routes']
    if item.get('live') is None:
        rec.vorn.fail('the routes of device %d could not be read: %s'
                      % (rec.device, item.get('live_error', 'no reason given')))
    table = RouteTable(rec, routes_of(item.get('saved')), routes_of(item.get('live')))
    if rec.vorn.check_mode and rec.new_segment:
        # What the address change would do: drop the saved routes whose gateway leaves the
        # segment, and replay the others onto the device.
        address, netmask = rec.new_segment
        table.saved = dict((k, g) for k, g in table.saved.items()
                           if in_segment(address, netmask, g))
        table.live.update(table.saved)
    before = table.view()

    removals = list(absent)
    if purge:
        removals += [k for k in sorted(table.saved) if k not in present and k not in absent]
    for key in removals:
        table.remove(key)
    for key, gateway in present.items():
        table.ensure(key, gateway)
    rec.record('routes', route_view, before, table.view())


def main():
    argument_spec = dict(
        device=dict(type='int', required=True),
        address=dict(type='str'),
        netmask=dict(type='str'),
        gateway=dict(type='str'),
        netdetect=dict(type='str'),
        mtu=dict(type='int'),
        mac=dict(type='str'),
        udp_port=dict(type='int'),
        routes=dict(type='list', elements='dict', options=dict(
            address=dict(type='str', required=True),
            netmask=dict(type='str', required=True),
            gateway=dict(type='str'),
            state=dict(type='str', choices=['present', 'absent'], default='present'),
        ), required_if=[('state', 'present', ['gateway'])]),
        purge=dict(type='bool', default=False, aliases=['purge_routes']),
    )
    argument_spec.update(COMMON_ARGS)
    module = AnsibleModule(argument_spec=argument_spec, supports_check_mode=True,
                           required_together=[('address', 'netmask')])
    p = module.params

    vorn = Vorn(module)
    rec = Reconciler(vorn, p['device'])
    if p['address'] is not None:
        sync_ip(rec, p['address'], p['netmask'])
    if p['gateway'] is not None:
        sync_gateway(rec, p['gateway'])
    if p['netdetect'] is not None:
        sync_value(rec, 'netdetect', 'netdetect', p['netdetect'], norm_ip,
                   ['-netdetect', '-s', 'address', p['netdetect']])
    if p['mtu'] is not None:
        sync_value(rec, 'mtu', 'mtu', p['mtu'], norm_number, ['-mtu', '-s', 'size', p['mtu']])
    if p['mac'] is not None:
        sync_value(rec, 'mac', 'mac_addr', p['mac'], norm_mac, ['-mac', '-s', 'mac', p['mac']])
    if p['udp_port'] is not None:
        sync_value(rec, 'udp_port', 'roce_port', p['udp_port'], norm_number,
                   ['-udp', '-s', 'port', p['udp_port']])
    if p['routes'] is not None:
        sync_routes(rec, p['routes'], p['purge'])
    rec.finish()

    result = dict(changed=vorn.changed, commands=vorn.commands, device=p['device'])
    if module._diff:
        result['diff'] = rec.diff()
    module.exit_json(**result)


if __name__ == '__main__':
    main()
