#!/usr/bin/env python3
"""Watches one counter of many gateways for as long as it runs: prints its rate, and what is wrong with a gateway that
does not answer. Gateways may fall silent, stop and start again at any time. Ctrl-C ends it at once.

    long_running.py STATISTIC SECONDS ROUNDS HOST:PORT ...

Each gateway has a thread of its own, so that one that is silent holds up no other. One that could not be opened is left
alone for 1, 2, 4 ... rounds; times that it has made its thread miss are left out.
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
    def __init__(self, host: str, port: int, statistic: str) -> None:
        self.host, self.port, self.statistic = host, port, statistic
        self.connection: Optional[rixstats.Connection] = None
        self.before: Optional[tuple[float, float]] = None  # value and time
        self.pause = 1  # rounds for which the gateway is left alone after its next failure
        self.left = 0  # rounds of them that are still to come

    def run(self, seconds: float, rounds: int) -> None:
        then = time.monotonic()
        for number in range(rounds):
            if number > 0:
                then += seconds * ((time.monotonic() - then) // seconds + 1)
                time.sleep(max(0.0, then - time.monotonic()))
            if self.left > 0:
                self.left -= 1
            else:
                self.look()

    def say(self, text: str) -> None:
        print(f"{self.host}:{self.port}: {text}", flush=True)

    def look(self) -> None:
        try:
            if self.connection is None:
                self.connection = rixstats.Connection(self.host, self.port, TIMEOUT)
            answer = self.connection.statistics_by_id(self.statistic)
        except rixstats.Error as error:  # rixstats.TimedOut is one, and so is what a stopped gateway leads to
            self.say(str(error))
            if self.connection is not None:
                self.connection.close()  # does nothing where the failure has ended it
            self.connection, self.before = None, None
            self.left, self.pause = self.pause, min(2 * self.pause, LONGEST_PAUSE)
        else:
            self.pause = 1
            self.report(answer)

    def report(self, answer: rixstats.Answer[rixstats.Statistic]) -> None:
        if not answer:
            self.say(f"the gateway has no {self.statistic} (code {answer.failed.get(self.statistic, 0)})")
            return
        try:
            value, now = float(answer[0].value), time.monotonic()
        except ValueError:
            self.say(f"{self.statistic} = {answer[0].value} is no number")
            return
        if self.before is None or value < self.before[0]:  # a counter falls when its gateway has been started again
            self.say(f"{self.statistic} = {value:.0f}")
        else:
            self.say(f"{self.statistic} {(value - self.before[0]) / (now - self.before[1]):.2f}/s")
        self.before = value, now


def host_and_port(text: str) -> tuple[str, int]:
    host, _, port = text.rpartition(":")
    if not host or not 1 <= int(port) <= 65535:
        raise ValueError(text)
    return host, int(port)


def main() -> int:
    try:
        statistic, seconds, rounds = sys.argv[1], float(sys.argv[2]), int(sys.argv[3])
        watches = [Watch(*host_and_port(gateway), statistic) for gateway in sys.argv[4:]]
        if not statistic or not 0.001 <= seconds <= 86400 or rounds < 1 or not watches:
            raise ValueError
    except (IndexError, ValueError):
        print("usage: long_running.py STATISTIC SECONDS ROUNDS HOST:PORT ...", file=sys.stderr)
        return 2
    threads = [threading.Thread(target=watch.run, args=(seconds, rounds), daemon=True) for watch in watches]
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
