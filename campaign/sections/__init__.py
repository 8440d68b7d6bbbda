# SPDX-License-Identifier: MIT
"""The sections of the campaign: a module each, with TITLE, SHARE and run(campaign).

SHARE is the section's time in seconds in the short form, and its part of the budget in the long one.
"""

# In the order of the campaign. What a section leaves of its time goes to those behind it, so the two
# that can always use more are last.
NAMES = ("faults", "kill", "disk", "load", "network", "soak", "fuzz")
