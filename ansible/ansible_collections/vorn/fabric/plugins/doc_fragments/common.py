# -*- coding: utf-8 -*-
# The options and notes every vorn.fabric module shares.

from __future__ import absolute_import, division, print_function

__metaclass__ = type


class ModuleDocFragment(object):

    DOCUMENTATION = r'''
options:
  vorn_tool_path:
    description:
      - Path of the C(vorn_tool) program on the managed host, which C(vorn_recover) runs.
      - Its own checks, its setting lock and the saved file C(/etc/vorn.conf) apply exactly as
        on the command line.
    type: path
    default: /usr/sbin/vorn_tool
  vornctl_path:
    description:
      - Path of the C(vornctl) program on the managed host.
      - Every read is C(vornctl show --json), which gives each device's settings live and saved;
        C(vorn_devices) makes its changes with C(vornctl apply), which runs the tool's own
        command lines.
    type: path
    default: /usr/sbin/vornctl
notes:
  - The module runs C(vorn_tool) and C(vornctl) on the managed host and never calls the driver
    itself. Both need root to reach the devices and save settings (C(become=true)).
  - The programs' environment is the task's, so C(environment) reaches them (a test build reads
    C(VORN_TEST_ROOT) and C(KOPA_EMU_DIR) from it).
  - A value is never range-checked by the module. A value that the tool refuses fails the
    task with the tool's own message (its standard error, then its standard output) as C(msg),
    the program's exit status as C(rc), and the command as C(cmd).
  - The paths can be set once for every module of the collection with
    C(module_defaults) and the action group C(group/vorn.fabric.vorn).
'''
