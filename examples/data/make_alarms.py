#!/usr/bin/env python3
"""Writes alarms.gbk, the sample feed: a day of alarms of an invented network.

The same seed gives the same file: run it again after a change and commit both.
"""

import pathlib
import random

FILE = pathlib.Path(__file__).with_name("alarms.gbk")
ALARMS = 300

SITES = ["NJ", "SZ", "BJ", "XA"]
# severity, probable cause, text
TROUBLES = [
    ("critical", "loss of signal", "光口收无光，请检查光纤和对端设备"),
    ("critical", "power failure", "主用电源输入中断"),
    ("critical", "equipment failure", "单板故障，业务已中断"),
    ("major", "high temperature", "机框温度过高"),
    ("major", "link down", "中继链路断开"),
    ("major", "clock source lost", "时钟源丢失，进入保持状态"),
    ("minor", "bit error rate", "误码率超过门限"),
    ("minor", "fan failure", "风扇转速异常"),
    ("minor", "battery low", "蓄电池电压偏低"),
    ("warning", "door open", "机房门未关"),
    ("warning", "licence expires", "许可证将在30天内到期"),
    ("indeterminate", "unknown", "Unclassified trouble 未分类"),
]
DETAILS = ["端口 1", "端口 2", "子架 3", "east", "west", ""]


def clock(second):
    return "2024-03-01 %02d:%02d:%02d" % (second // 3600, second // 60 % 60, second % 60)


def raise_line(number, second, choice):
    severity, cause, text = choice.choice(TROUBLES)
    where = "NE-%s-%02d/slot-%d/port-%d" % (
        choice.choice(SITES), choice.randint(1, 40), choice.randint(1, 16), choice.randint(1, 8))
    detail = choice.choice(DETAILS)
    words = text + (" (" + detail + ")" if detail else "")
    return "event=raise;id=%d;object=%s;severity=%s;cause=%s;time=%s;text=%s" % (
        number, where, severity, cause, clock(second), words)


def later_line(number, choice):
    kind = choice.random()
    if kind < 0.5:
        return "event=clear;id=%d" % number
    if kind < 0.8:
        return "event=change;id=%d;severity=%s" % (number, choice.choice(["major", "minor", "warning"]))
    return "event=change;id=%d;text=%s" % (number, choice.choice(["已派单处理", "现场确认中", "under repair"]))


def lines():
    choice = random.Random(20240301)
    yield "# Alarms of an invented network, in GBK. Made by make_alarms.py."
    active = []
    second = 5 * 3600
    for number in range(1001, 1001 + ALARMS):
        second += choice.randint(5, 120)
        yield raise_line(number, second, choice)
        active.append(number)
        if choice.random() < 0.6:
            which = choice.choice(active)
            line = later_line(which, choice)
            if line.startswith("event=clear"):
                active.remove(which)
            yield line


FILE.write_bytes("".join(line + "\n" for line in lines()).encode("gbk"))
