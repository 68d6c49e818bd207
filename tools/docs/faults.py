# SPDX-License-Identifier: MIT
"""What stops the making of the documentation."""


class Fault(Exception):
    """Something that a person has to mend; the message says what and where."""
