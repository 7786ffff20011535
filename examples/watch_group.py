#!/usr/bin/env python3
"""Watches a resource group: each statistic whose value has changed since the last look.

    watch_group.py HOST PORT GROUP [SECONDS [ROUNDS]]
"""
from __future__ import annotations

import sys
import time

import rixstats


def watch(gateway: rixstats.Connection, group: str, seconds: float, rounds: int) -> None:
    before: dict[str, str] = {}
    for round_number in range(rounds):
        if round_number > 0:
            time.sleep(seconds)
        answer = gateway.statistics_in_groups(group)
        for element, code in answer.failed.items():
            print(f"{element} failed with gateway code {code}")
        for stat in answer:
            if before.get(stat.id) != stat.value:
                print(f"{stat.id:40} {before.get(stat.id, ''):>12} -> {stat.value}", flush=True)
        before = {stat.id: stat.value for stat in answer}


def main() -> int:
    if len(sys.argv) < 4:
        print("usage: watch_group.py HOST PORT GROUP [SECONDS [ROUNDS]]", file=sys.stderr)
        return 2
    host, port, group = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    seconds = float(sys.argv[4]) if len(sys.argv) > 4 else 1.0
    rounds = int(sys.argv[5]) if len(sys.argv) > 5 else sys.maxsize
    try:
        with rixstats.Connection(host, port) as gateway:
            watch(gateway, group, seconds, rounds)
    except rixstats.Error as error:  # "... failed with STAPI_CONNECTION_REFUSED (-135): nothing listens ..."
        print(f"watch_group.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
