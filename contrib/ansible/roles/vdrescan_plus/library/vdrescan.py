#!/usr/bin/python
"""Runs vdRescan_plus --mutual, and has it delete what was reviewed, or nothing.

The tool lists what is stale, asks, and then deletes what it has listed and nothing else. So the answer to its question
is found here, from what its trace log tells at that moment, and is yes only where that is exactly what was reviewed.
Whatever ends this module closes the tool's input, which means no.

Arguments:
    reviewed        the stale disks that may be deleted, as a look returned them; none: only look
    max_disks       no more of them than these
    not_connected   whether there may be disks of sessions that are not connected among them
    allow_no_disks  whether a host without a supported disk is as it should be
    seconds         for the whole run, which is stopped then

Result:
    report  lines for a person
    stale   the stale disks, for a review
"""
import json
import os
import signal
import subprocess

from ansible.module_utils.basic import AnsibleModule

LOG = "/opt/Veridane_NVMe/log/vd_rescan_log.txt"
QUESTION = b"please input [yes], or input [no]:"
STALE = ("not connected", "removed", "changed")


def size_of_log():
    return os.path.getsize(LOG) if os.path.exists(LOG) else 0


def run_since(size, reader):
    """What the trace log tells of the run that begins at this size, or None unless there is exactly one."""
    try:
        with open(LOG, "rb") as log:
            os.lseek(log.fileno(), size, os.SEEK_SET)
            told = subprocess.run([reader, "--all", "--json", "-"], stdin=log, stdout=subprocess.PIPE, check=False)
        runs = json.loads(told.stdout)["runs"]
    except (FileNotFoundError, ValueError):
        return None
    return runs[0] if len(runs) == 1 else None


def stale_disks(run):
    """What identifies each stale disk, and why it is stale."""
    names = ("address", "state", "wwn", "wwn_now")
    disks = [{name: disk[name] for name in names} for disk in run["disks"] if disk["state"] in STALE]
    return sorted(disks, key=lambda disk: disk["address"])


def refusal(run, options):
    """Why the disks of this run must not be deleted, or None."""
    disks = stale_disks(run)
    if disks != options["reviewed"]:
        return "what is stale now is not what was reviewed"
    if len(disks) > options["max_disks"]:
        return "%d disks are stale, more than vd_max_disks" % len(disks)
    if not options["not_connected"] and any(disk["state"] == "not connected" for disk in disks):
        return "a session is not connected, and vd_delete_not_connected is not set"
    return None


def answer(run, options):
    """What the tool gets to its question in this run, whose end is still to come."""
    return b"yes\n" if options["reviewed"] and run and not refusal(run, options) else b"no\n"


def play(tool, options, run_so_far):
    """Runs the tool to its end. False: it had to be stopped."""
    def stop(*_):
        raise TimeoutError

    signal.signal(signal.SIGALRM, stop)
    signal.alarm(options["seconds"])
    run = subprocess.Popen([tool, "--mutual"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    try:
        said = b""
        while True:
            piece = run.stdout.read1(4096)
            if not piece:
                return True
            said += piece
            if said.endswith(QUESTION):
                run.stdin.write(answer(run_so_far(), options))
                run.stdin.flush()
    except TimeoutError:
        run.kill()  # and not waited for: inside the kernel it may last
        return False
    finally:
        signal.alarm(0)


def fault(ended, run, options):
    """Why this run is not as it should be, or None."""
    if not ended:
        return "the run did not end within %d seconds, and was stopped" % options["seconds"]
    if not run:
        return "the trace log does not tell of this run alone; is it missing, or was there another run?"
    if run["outcome"] == "refused":
        return "the run was refused: %s" % run["refusal"]
    if run["outcome"] != "complete":
        return "the run did not end"
    if not run["whole"]:
        return "records of the run are missing"
    if not run["list_loaded"]:
        return "the supported-device list did not load"
    if run["inventory_errors"]:
        return " ".join(run["inventory_errors"])
    if run["disks_found"] == 0 and not options["allow_no_disks"]:
        return "no supported disk was found"
    if options["reviewed"] is None:
        return None
    actions = [disk["action"] for disk in run["disks"]]
    reason = refusal(run, options)
    if reason and "deleted" in actions:
        return "DISKS WERE DELETED, ALTHOUGH " + reason
    return "a disk could not be deleted" if "failed" in actions else reason


def report(run):
    """Lines for a person."""
    kinds = {}
    for disk in run["disks"]:
        text = disk["address"] or disk["reason"]
        if disk["state"] == "changed":
            text += " [%s -> %s]" % (disk["wwn"], disk["wwn_now"])
        kinds.setdefault(disk["state"], []).append(text)
        if disk["action"] in ("deleted", "failed"):
            kinds.setdefault(disk["action"], []).append(disk["address"])
    kinds["not rescanned"] = run["hosts_not_rescanned"] + run["controllers_not_rescanned"]
    order = STALE + ("not questioned", "left out", "deleted", "failed", "not rescanned")
    lines = ["%s: %s" % (kind, ", ".join(kinds[kind])) for kind in order if kinds.get(kind)]
    return lines + ["a query failed, by one of %s: %s" % (", ".join(query["addresses"]) or "all", query["message"])
                    for query in run["unassigned"]]


def main():
    module = AnsibleModule(supports_check_mode=True, argument_spec={
        "reviewed": {"type": "list", "elements": "dict"},
        "max_disks": {"type": "int", "default": 0},
        "not_connected": {"type": "bool", "default": False},
        "allow_no_disks": {"type": "bool", "default": False},
        "seconds": {"type": "int", "required": True},
    })
    if module.check_mode:
        module.exit_json(report=["not looked"])
    tool, reader = (module.get_bin_path(name, required=True) for name in ("vdRescan_plus", "vdRescan_log"))
    size = size_of_log()
    ended = play(tool, module.params, lambda: run_since(size, reader))
    run = run_since(size, reader)
    lines = report(run) if run else []
    reason = fault(ended, run, module.params)
    if reason:
        module.fail_json(msg="; ".join([reason] + lines))
    if not stale_disks(run):
        lines.append("nothing stale among %d disks" % run["disks_found"])
    module.exit_json(changed=any(disk["action"] == "deleted" for disk in run["disks"]),
                     report=lines, stale=stale_disks(run))


if __name__ == "__main__":
    main()
