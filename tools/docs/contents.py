# SPDX-License-Identifier: MIT
"""What the documentation has, in the order in which it is shown."""

# Title in the navigation, and the page.
GUIDE = [
    ("Overview", "README.md"),
    ("Getting started", "docs/getting-started.md"),
    ("Concepts", "docs/concepts.md"),
    ("The tool vexadm", "docs/tool.md"),
    ("Caveats", "docs/caveats.md"),
    ("Storage format", "docs/storage.md"),
    ("Reliability", "docs/reliability.md"),
]
PROJECT = [
    ("ABI", "docs/abi.md"),
    ("Packaging", "packaging/README.md"),
    ("Changes", "CHANGELOG.md"),
    ("Contributing", "CONTRIBUTING.md"),
    ("Coverage", "docs/coverage.md"),
    ("Mutation run", "docs/mutants.md"),
]

# The families by their headers, each with the examples that show it.
FAMILIES = {
    "data_manager": ["hello_store", "settings_daemon"],
    "storage": ["look_at_files"],
    "types": ["hello_store"],
    "param_db": ["parameters"],
    "log": ["log_lines"],
    "watch_log": ["watch_log"],
    "queue": ["jobs"],
    "list": ["lists"],
    "semaphore": ["wait_for_event"],
    "symtab": ["name_table"],
    "process": ["run_command"],
    "netlink": ["default_gateway"],
    "address": ["check_address"],
    "at_command": ["send_at"],
    "gsm_text": ["decode_ussd"],
    "unicode": ["convert_text"],
    "identity": ["project_name"],
    "clock": ["clocks"],
    "command_data": ["queue_commands"],
    "device": ["device_values"],
    "strings": ["edit_text"],
}
# Headers that belong to all families: they have no example, and share the manual page libvexadm(3).
SHARED = ["vexadm", "export", "version"]
