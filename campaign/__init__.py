# SPDX-License-Identifier: MIT
"""Long tests of the whole reader, each within a budget of time; scripts/campaign runs them."""
