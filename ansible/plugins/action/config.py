# Copyright (c) 2026 The ucfgd authors
# MIT License, see LICENSE
"""Runs ucfgd.config.config on the target, and confirms its commit on trial."""

from __future__ import annotations

from ansible_collections.ucfgd.config.plugins.plugin_utils.trial import TrialActionModule


class ActionModule(TrialActionModule):
    """See ucfgd.config.config."""
