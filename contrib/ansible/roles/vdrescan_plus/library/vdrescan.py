#!/usr/bin/python
"""Runs vdRescan_plus --mutual, and lets it delete exactly the reviewed disks, or nothing.

The tool lists the stale disks, asks, and then deletes those disks and no others. This module answers the question. It
answers yes only if the tool's printed list, the tool's trace log and the review name the same disks. If it cannot read
one of them, it answers no. If the module ends, the tool's input is closed, which also means no.

Arguments:
    reviewed        the stale disks that may be deleted, as a look returned them; none: only look
    max_disks       the largest number of disks that may be deleted
    not_connected   whether disks of sessions that are not connected may be deleted
    whole_sessions  whether all disks of a session may be deleted because the session reports none of them
    in_use          whether disks may be deleted on which more sits than maps that keep another path
    allow_no_disks  whether a host may be without a supported disk
    seconds         time limit for the whole run

Result:
    report   lines for a person
    found    content of a review: `stale`, `sessions_removed`, `not_checked` and `others`
    deleted  addresses of the deleted disks
"""
import contextlib
import json
import os
import re
import signal
import subprocess
import time

from ansible.module_utils.basic import AnsibleModule

LOG = "/opt/Veridane_NVMe/log/vd_rescan_log.txt"
QUESTION = "If you want delete all map view changed scsi disk, please input [yes], or input [no]:"
USE = ("block", "used_by", "in_use")
STALE = ("not connected", "removed", "changed")
QUESTION_SECONDS = 10  # time for the tool to record the question that it printed

SESSION = r"[0-9]+:[0-9]+:[0-9]+"
LINE = r"    %s:[0-9]+\n" % SESSION
CHANGED_LINE = r"    %s:[0-9]+ \[[0-9A-Za-z]+ -> [0-9A-Za-z]+\]\n" % SESSION
SILENT_SESSION = r"scsi session\((%s)\) is no connect, include below scsi disk:\n((?:%s)+)" % (SESSION, LINE)
COUNTED = r"(?:there are many scsi disk %s, include below ([0-9]+) scsi disk:\n((?:%s)+))?"
# The whole output of the tool up to its question.
LIST = re.compile(r"vdRescan_plus start\.\.\.\n((?:%s)*)" % SILENT_SESSION
                  + COUNTED % ("removed", LINE) + COUNTED % ("changed", CHANGED_LINE) + re.escape(QUESTION))
DELETION = re.compile(r"^    delete (\S+) (success|fail)\.$", re.MULTILINE)


def up_to_question(said):
    """The tool's output up to its first question; empty without one."""
    return said[:said.find(QUESTION) + len(QUESTION)] if QUESTION in said else ""


def printed_list(said):
    """The stale disks in the tool's output up to its question, as sorted tuples. None if a part has an unknown form."""
    if not said:
        return []
    match = LIST.fullmatch(said)
    if not match:
        return None
    disks = []
    for session, lines in re.findall(SILENT_SESSION, match[1]):
        disks += [(address, "not connected", None, None) for address in lines.split()]
        if any(address.rpartition(":")[0] != session for address in lines.split()):
            return None
    # Groups 2 and 3 are of the last silent session.
    for state, count, lines in (("removed", match[4], match[5]), ("changed", match[6], match[7])):
        found = re.findall(r"    (\S+)(?: \[(\S+) -> (\S+)\])?\n", lines or "")
        if len(found) != int(count or 0):
            return None
        disks += [(address, state, old or None, new or None) for address, old, new in found]
    return sorted(disks, key=lambda disk: disk[0])


def logged_list(disks):
    """Like printed_list, for disks of the trace log or a review. The tool prints names only for changed disks."""
    return sorted(((disk["address"], disk["state"])
                   + ((disk["wwn"], disk["wwn_now"]) if disk["state"] == "changed" else (None, None))
                   for disk in disks), key=lambda disk: disk[0])


class TooLate(Exception):
    """The run takes longer than its time limit."""


def size_of_log():
    return os.path.getsize(LOG) if os.path.exists(LOG) else 0


def run_since(size, reader):
    """The run in the trace log from this offset on. None if there is not exactly one."""
    try:
        with open(LOG, "rb") as log:
            os.lseek(log.fileno(), size, os.SEEK_SET)
            output = subprocess.run([reader, "--all", "--json", "-"], stdin=log, stdout=subprocess.PIPE, check=False)
        runs = json.loads(output.stdout)["runs"]
    except (OSError, ValueError, KeyError):
        return None
    return runs[0] if len(runs) == 1 else None


def disks_now(run, reader):
    """The disks of this run with those who use them now. Empty if that is not known."""
    try:
        output = subprocess.run([reader, "--json"], stdout=subprocess.PIPE, check=False)
        return [disk for known in json.loads(output.stdout)["runs"] if known["start"] == run["start"]
                for disk in known["disks"]]
    except (OSError, ValueError, KeyError):
        return []


def add_users(run, disks):
    """Adds to the disks of the run who uses them, according to `disks`: None for what these do not say."""
    users = {disk["address"]: disk for disk in disks}
    for disk in run["disks"]:
        disk.update({name: users.get(disk["address"], {}).get(name) for name in USE})
    return run


def run_at_question(size, reader):
    """The same run after the tool has printed its question. The tool records the question after printing it."""
    deadline = time.monotonic() + QUESTION_SECONDS
    while True:
        run = run_since(size, reader)
        if (run and run["asked"]) or time.monotonic() > deadline:
            return add_users(run, disks_now(run, reader)) if run else None
        time.sleep(0.1)


def is_started_since(run, started):
    """Whether the local time of the run's first record is between `started` and now, even when summer time ends."""
    seconds = range(int(started), int(time.time()) + 1)
    return run["start"] in [time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(second)) for second in seconds]


def findings(run):
    """The findings that a person reviews."""
    names = ("address", "state", "wwn", "wwn_now") + USE
    unknown = [disk for disk in run["disks"] if disk["state"] in ("not questioned", "left out")]
    not_checked = {disk["address"] or disk["node"] or "any disk" for disk in unknown}
    for query in run["unassigned"]:
        not_checked.update(query["addresses"] or ["any disk"])
    return {
        "stale": sorted(({name: disk[name] for name in names} for disk in run["disks"] if disk["state"] in STALE),
                        key=lambda disk: disk["address"]),
        "sessions_removed": sorted(run["sessions_removed"]),
        "not_checked": sorted(not_checked),
        "others": sorted("%s %s: %d" % (other["vendor"], other["product"], other["disks"]) for other in run["others"]),
    }


def objections(found):
    """Objections to a deletion: pairs of a text and the argument that allows it anyway, or None."""
    for disk in found["stale"]:
        if disk["state"] == "changed":
            old, new = disk["wwn"] or "", disk["wwn_now"] or ""
            if old.lower() == new.lower():
                yield disk["address"] + ": the names differ only in case: the disk is the same", None
            if not new.strip("0"):
                yield disk["address"] + ": the new name is all zeros", None
        if disk["in_use"]:
            yield disk["address"] + ": it is in use", "in_use"
        if disk["in_use"] is None:
            yield disk["address"] + ": it is not known who uses it", "in_use"
    for session in found["sessions_removed"]:
        yield session + ": every disk of the session is removed", "whole_sessions"
    silent = {disk["address"].rpartition(":")[0] for disk in found["stale"] if disk["state"] == "not connected"}
    for session in sorted(silent):
        yield session + ": the session is not connected", "not_connected"


def refusal(found, options):
    """Why these disks must not be deleted even after a review, or None."""
    if len(found["stale"]) > options["max_disks"]:
        return "%d disks are stale, more than vd_max_disks" % len(found["stale"])
    for text, argument in objections(found):
        if argument is None:
            return text + ", which is never deleted"
        if not options[argument]:
            return "%s, and vd_delete_%s is not set" % (text, argument)
    return None


def objection(said, run, started, options):
    """Why the answer to the tool's question must be no in this run, or None."""
    try:
        if not (run and run["whole"] and run["asked"] and run["outcome"] == "not ended" and run["answer"] is None):
            return "the trace log does not hold this run up to its question"
        if not is_started_since(run, started):
            return "the trace log dates this run at %s" % run["start"]
        if any(disk["action"] != "none" for disk in run["disks"]):
            return "the trace log holds actions from before the question"
        found = findings(run)
        if printed_list(said) != logged_list(found["stale"]):
            return "the tool's list and its trace log are not the same"
        if not found["stale"] or found["stale"] != options["reviewed"]:
            return "what is stale now is not what was reviewed"
        return refusal(found, options)
    except (KeyError, TypeError, ValueError, AttributeError) as error:
        return "the trace log cannot be understood: %r" % error


def play(tool, seconds, decide):
    """Runs the tool and answers its question once. Returns whether it ended in time, and its output."""
    def stop(*_):
        raise TooLate

    said = b""
    is_answered = False
    signal.signal(signal.SIGALRM, stop)
    signal.alarm(seconds)
    run = subprocess.Popen([tool, "--mutual"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    try:
        while True:
            piece = run.stdout.read1(4096)
            if not piece:
                return True, said.decode("ascii", "replace")
            said += piece
            if said.endswith(QUESTION.encode()) and not is_answered:
                is_answered = True
                text = b"yes\n" if decide(said.decode("ascii", "replace")) else b"no\n"
                with contextlib.suppress(BrokenPipeError):  # the caller reports the end of the tool
                    run.stdin.write(text)
                    run.stdin.close()
    except TooLate:
        run.kill()  # does not wait: a call inside the kernel may take long
        os.set_blocking(run.stdout.fileno(), False)
        said += run.stdout.read() or b""
        return False, said.decode("ascii", "replace")
    finally:
        signal.alarm(0)


def deletions(said, run, result):
    """Addresses whose deletion had this result according to the tool's output or its trace log."""
    word, action = ("success", "deleted") if result else ("fail", "failed")
    logged = {disk["address"] for disk in run["disks"] if disk["action"] == action} if run else set()
    return sorted(logged.union(address for address, end in DELETION.findall(said) if end == word))


def fault_of_run(ended, said, run, reader, started, options):
    """Why this run was not successful, or None."""
    if not ended:
        return "the run did not end within %d seconds, and was stopped" % options["seconds"]
    check = subprocess.run([reader, "--check", "--since", str(int(started))], stdout=subprocess.PIPE, check=False)
    if check.returncode == 3:
        return check.stdout.decode("utf-8", "replace").strip()
    if not run:
        return "the trace log does not hold this run alone; is it rotated, or was there another run?"
    if run["outcome"] == "refused":
        return "the run was refused: %s" % run["refusal"]
    if run["outcome"] != "complete":
        return "the trace log does not hold the end of the run; is its file system full?"
    if not run["whole"]:
        return "records of the run are missing"
    if not run["list_loaded"]:
        return "the supported-device list did not load"
    if run["inventory_errors"]:
        return " ".join(run["inventory_errors"])
    if run["disks_found"] == 0 and not options["allow_no_disks"]:
        return "no supported disk was found"
    if printed_list(up_to_question(said)) != logged_list(findings(run)["stale"]):
        return "the tool's list and its trace log are not the same"
    return None


def fault_of_deletion(deleted, failed, answer, options):
    """Why this host did not lose exactly the reviewed disks, or None. `answer` has the objection if the tool asked."""
    reviewed = {disk["address"] for disk in options["reviewed"] or []}
    foreign = sorted(set(deleted) - reviewed)
    if foreign:
        return "DISKS WERE DELETED THAT NOBODY REVIEWED: " + ", ".join(foreign)
    if deleted and answer != [None]:
        return "DISKS WERE DELETED WITHOUT A YES: " + ", ".join(deleted)
    if answer and answer[0]:
        return answer[0]
    if failed:
        return "a disk could not be deleted"
    return "what is stale now is not what was reviewed" if reviewed - set(deleted) else None


def lines_of_findings(found):
    """Lines about stale disks, objections, and disks that are not in the list."""
    kinds = {}
    for disk in found["stale"]:
        names = " [%s -> %s]" % (disk["wwn"], disk["wwn_now"]) if disk["state"] == "changed" else ""
        kinds.setdefault(disk["state"], []).append(disk["address"] + names)
    lines = ["%s: %s" % (state, ", ".join(kinds[state])) for state in STALE if state in kinds]
    for disk in found["stale"]:
        lines += ["%s: %s" % (disk["address"], " > ".join([disk["block"]] + chain)) for chain in disk["used_by"] or []]
    lines += ["warning: " + text for text, _ in objections(found)]
    if found["others"]:
        lines.append("not in the list: " + ", ".join(found["others"]))
    return lines


def report(run, found, said, deleted, failed):
    """Lines for a person."""
    lines = lines_of_findings(found)
    known = [disk["address"] for disk in found["stale"]]
    only_printed = [disk for disk in printed_list(up_to_question(said)) or [] if disk[0] not in known]
    lines += ["printed, but not in the trace log: %s %s" % (disk[1], disk[0]) for disk in only_printed]
    kinds = {"deleted": deleted, "failed": failed}
    if run:
        for disk in run["disks"]:
            kinds.setdefault(disk["state"], []).append(disk["address"] or disk["reason"])
        kinds["not rescanned"] = run["hosts_not_rescanned"] + run["controllers_not_rescanned"]
    order = ("unknown", "not questioned", "left out", "deleted", "failed", "not rescanned")
    lines += ["%s: %s" % (kind, ", ".join(kinds[kind])) for kind in order if kinds.get(kind)]
    for query in run["unassigned"] if run else []:
        lines.append("a query failed, by one of %s: %s" % (", ".join(query["addresses"]) or "all", query["message"]))
    return lines


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec={
        "reviewed": {"type": "list", "elements": "dict"},
        "max_disks": {"type": "int", "default": 0},
        "not_connected": {"type": "bool", "default": False},
        "whole_sessions": {"type": "bool", "default": False},
        "in_use": {"type": "bool", "default": False},
        "allow_no_disks": {"type": "bool", "default": False},
        "seconds": {"type": "int", "required": True},
    })
    options = module.params
    if module.check_mode:
        module.exit_json(report=["not looked"])
    tool, reader = (module.get_bin_path(name, required=True) for name in ("vdRescan_plus", "vdRescan_log"))
    started = time.time()
    size = size_of_log()
    answer = []

    def decide(said):
        if options["reviewed"] is None:
            return False
        answer.append(objection(said, run_at_question(size, reader), started, options))
        return answer[0] is None

    ended, said = play(tool, options["seconds"], decide)
    run = run_since(size, reader)
    deleted, failed = (deletions(said, run, result) for result in (True, False))
    if run and ("sessions_removed" not in run or any("in_use" not in disk for disk in run["disks"])):
        module.fail_json(msg="this host's vdRescan_log is too old; deleted: %s" % (", ".join(deleted) or "nothing"))
    found = {"stale": [], "sessions_removed": [], "not_checked": ["any disk"], "others": []}
    if run:
        # A deleted disk has no users any more: those that were reviewed count.
        found = findings(add_users(run, options["reviewed"] or disks_now(run, reader)))
    lines = report(run, found, said, deleted, failed)
    faults = [fault_of_deletion(deleted, failed, answer, options),
              fault_of_run(ended, said, run, reader, started, options)]
    if any(faults):
        module.fail_json(msg="; ".join([fault for fault in faults if fault] + lines))
    if found["not_checked"]:
        lines.append("not fully checked: " + ", ".join(found["not_checked"]))
    elif not found["stale"]:
        lines.append("nothing stale among %d disks" % run["disks_found"])
    module.exit_json(changed=bool(deleted), report=lines, found=found, deleted=deleted)


if __name__ == "__main__":
    main()
