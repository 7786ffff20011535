#!/usr/bin/env python3
"""Watches one counter of many gateways for as long as it runs: prints its rate, and what is wrong with a gateway that
does not answer. Gateways may fall silent, stop and start again at any time. Ctrl-C ends it at once.

    long_running.py STATISTIC SECONDS ROUNDS HOST:PORT ...

Each gateway has a thread of its own, so that one that is silent holds up no other.
"""
from __future__ import annotations

import sys
import threading
import time
from typing import Optional

import rixstats

TIMEOUT = 1.0
LONGEST_PAUSE = 32  # rounds


class Watch:
    def __init__(self, gateway: str, statistic: str) -> None:
        self.gateway, self.statistic = gateway, statistic
        self.connection: Optional[rixstats.Connection] = None
        self.before: Optional[tuple[float, float]] = None  # value and time
        self.pause = 1  # rounds for which the gateway is left alone after its next failure
        self.left = 0  # rounds of them that are still to come

    def run(self, seconds: float, rounds: int) -> None:
        then = time.monotonic()
        for _ in range(rounds):
            if self.left > 0:
                self.left -= 1
            else:
                self.look()
            then += seconds
            time.sleep(max(0.0, then - time.monotonic()))

    def look(self) -> None:
        try:
            if self.connection is None:
                host, _, port = self.gateway.rpartition(":")
                self.connection = rixstats.Connection(host, int(port), TIMEOUT)
            values = [float(stat.value) for stat in self.connection.statistics_by_id(self.statistic)]
        except rixstats.Error as error:  # rixstats.TimedOut is one, and so is what a stopped gateway leads to
            print(f"{self.gateway}: {error}", flush=True)
            if self.connection is not None:
                self.connection.close()  # does nothing where the failure has ended it
            self.connection, self.before = None, None
            self.left, self.pause = self.pause, min(2 * self.pause, LONGEST_PAUSE)
        else:
            self.report(values[0] if values else 0.0, time.monotonic())

    def report(self, value: float, now: float) -> None:
        if self.before is None or value < self.before[0]:  # a counter falls when its gateway has been started again
            print(f"{self.gateway}: {self.statistic} = {value:.0f}", flush=True)
        else:
            rate = (value - self.before[0]) / (now - self.before[1])
            print(f"{self.gateway}: {self.statistic} {rate:.2f}/s", flush=True)
        self.before, self.pause = (value, now), 1


def main() -> int:
    if len(sys.argv) < 5:
        print("usage: long_running.py STATISTIC SECONDS ROUNDS HOST:PORT ...", file=sys.stderr)
        return 2
    statistic, seconds, rounds = sys.argv[1], float(sys.argv[2]), int(sys.argv[3])
    threads = [threading.Thread(target=Watch(gateway, statistic).run, args=(seconds, rounds), daemon=True)
               for gateway in sys.argv[4:]]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    rixstats.close_all()
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
