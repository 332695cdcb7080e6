"""contrib/ansible/check_module.py: checks that the module vdrescan answers no in each case that requires a no.

Exit status: 0 all of it does, 1 a yes that should be a no, or the other way round.
"""
import copy
import os
import re
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "roles", "vdrescan_plus", "library"))
import vdrescan  # noqa: E402

STARTED = time.time()
PRINTED = """vdRescan_plus start...
scsi session(2:0:1) is no connect, include below scsi disk:
    2:0:1:1
    2:0:1:2
there are many scsi disk removed, include below 2 scsi disk:
    2:0:0:3
    3:0:0:2
there are many scsi disk changed, include below 1 scsi disk:
    2:0:0:2 [6a1b -> f0e1]
""" + vdrescan.QUESTION


def disk(address, state, wwn="6a1b", wwn_now=None):
    return {"address": address, "node": "/dev/sg1", "state": state, "wwn": wwn, "wwn_now": wwn_now, "action": "none",
            "block": "sdg", "used_by": [["sdg1", "/srv"]], "in_use": True}


RUN = {
    "whole": True, "asked": True, "answer": None, "outcome": "not ended", "unassigned": [], "others": [],
    "start": time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(STARTED)),
    "sessions_removed": ["3:0:0"],
    "disks": [disk("2:0:0:2", "changed", wwn_now="f0e1"), disk("2:0:0:3", "removed"), disk("2:0:1:1", "not connected"),
              disk("2:0:1:2", "not connected"), disk("3:0:0:2", "removed"), disk("3:0:0:9", "not questioned")],
}
OPTIONS = {"reviewed": vdrescan.findings(RUN)["stale"], "max_disks": 5, "not_connected": True, "whole_sessions": True,
           "in_use": True}
RUN_FAULTS = {
    "whole": [False], "asked": [False], "answer": ["yes", "no"], "outcome": ["complete", "refused"],
    "start": ["2036-01-01 00:00:00", "2001-01-01 00:00:00"], "disks": [[]], "sessions_removed": [None],
}
OPTION_FAULTS = {"reviewed": [[], None], "max_disks": [4], "not_connected": [False], "whole_sessions": [False],
                 "in_use": [False]}
DISK_FAULTS = {
    "address": ["2:0:0:33", None], "state": ["removed", "changed", "not connected", "unknown"],
    "wwn": ["F0E1", "6a1c"], "wwn_now": ["6A1B", "6a1c", "0000"], "action": ["deleted", "failed"],
    "used_by": [[], [["sdg1", "/srv"], ["sdg2"]], None], "in_use": [False, None],
}
bad = []


def expect(is_yes, name, said=PRINTED, run=RUN, options=OPTIONS):
    """Checks whether the answer in this case is yes or no."""
    if (vdrescan.objection(said, run, STARTED, options) is None) != is_yes:
        bad.append(name)


def altered_texts():
    """The tool's output with each line left out, doubled, or altered."""
    lines = PRINTED.split("\n")
    for at, line in enumerate(lines):
        for change in ([], [line, line], [line + " "], [line[1:]], ["", line], [line.replace(":", ";")]):
            yield "\n".join(lines[:at] + change + lines[at + 1:])
    for digit in re.finditer("[0-9]", PRINTED):
        yield PRINTED[:digit.start()] + "7" + PRINTED[digit.end():]


def altered_runs():
    """The trace log's run with each field of it, and of each stale disk, altered."""
    for field, values in RUN_FAULTS.items():
        for value in values:
            yield dict(RUN, **{field: value})
    for at, known in enumerate(OPTIONS["reviewed"]):
        for field, values in DISK_FAULTS.items():
            for value in values:
                run = copy.deepcopy(RUN)
                run["disks"][at][field] = value
                if value != known.get(field):
                    yield run


expect(True, "the same everywhere")
expect(False, "no run", run=None)
for text in altered_texts():
    if text != PRINTED:
        expect(False, "printed: " + text, said=text)
for altered in altered_runs():
    expect(False, "in the trace log: %s" % altered, run=altered)
for field, values in OPTION_FAULTS.items():
    for value in values:
        expect(False, "%s: %s" % (field, value), options=dict(OPTIONS, **{field: value}))

# List, trace log and review have the same names, but the disk must stay.
for name in ("6A1B", "0000"):
    run = copy.deepcopy(RUN)
    run["disks"][0]["wwn_now"] = name
    options = dict(OPTIONS, reviewed=vdrescan.findings(run)["stale"])
    expect(False, "the new name %s" % name, PRINTED.replace("f0e1", name), run, options)

# A deletion that is only in the output must be reported, for every review and answer.
said = PRINTED + "delete all map view changed scsi disk:\n    delete 9:0:0:1 success.\n    delete 2:0:0:3 success.\n"
deleted = vdrescan.deletions(said, RUN, True)
if deleted != ["2:0:0:3", "9:0:0:1"]:
    bad.append("deleted: %s" % deleted)
DELETION_FAULTS = (
    (deleted, [None], "THAT NOBODY REVIEWED: 9:0:0:1"),
    (["2:0:0:3"], [], "WITHOUT A YES"),
    (["2:0:0:3"], ["no run"], "WITHOUT A YES"),
    (["2:0:0:3"], [None], "is not what was reviewed"),
)
for lost, answer, fault in DELETION_FAULTS:
    if fault not in str(vdrescan.fault_of_deletion(lost, [], answer, OPTIONS)):
        bad.append("not reported: " + fault)

print("\n".join(bad) or "the answers of the module are right")
sys.exit(bool(bad))
