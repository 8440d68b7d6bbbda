# SPDX-License-Identifier: MIT
"""Receivers of every kind while the radio reports 10,000 tags a second, and clients without end."""
from campaign.sections import load_clients, load_forms, load_receivers

TITLE = "subscribers of every kind, forms flipped, clients and large requests, at 10,000 reports a second"
SHARE = 85  # seconds of the short form

PARTS = (
    (load_receivers.nobody, 1),
    (load_receivers.beside_bad_ones, 3),
    (load_receivers.local_consumer, 2),
    (load_receivers.shares, 2),
    (load_forms.flip, 4),
    (load_clients.come_and_go, 3),
    (load_clients.large_requests, 3),
)


def run(campaign):
    rest = sum(weight for _, weight in PARTS)
    for part, weight in PARTS:
        part(campaign, max(campaign.left() * weight / rest, 1.5))
        rest -= weight
