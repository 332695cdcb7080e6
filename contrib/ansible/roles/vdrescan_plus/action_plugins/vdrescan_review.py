"""Stores the reviews on the machine that runs ansible, and decides which hosts may lose disks.

A review is reviews/HOST.json: the findings of a look, its time, and whether a person approved them.

Arguments:
    do         withdraw  removes the review and returns it, before a look begins
               look      looks, and writes the new review; it is approved if `withdrawn` was and has the same findings
               approve   approves the review
               read      returns whether the host is `due`, and if not, why; with --check, what would be deleted
               reach     contacts the host
               delete    has the module vdrescan delete what was approved
    directory  of the reviews
    withdrawn  with `look`: what `withdraw` returned
    hours      maximum age of a look and of an approval
    all others: the arguments of the module vdrescan
"""
import importlib.util
import json
import os
from datetime import datetime, timedelta, timezone

from ansible import constants
from ansible.errors import AnsibleConnectionFailure
from ansible.module_utils.parsing.convert_bool import boolean
from ansible.plugins.action import ActionBase

TIME = "%Y-%m-%dT%H:%M:%SZ"
FOUND = ("stale", "sessions_removed", "not_checked", "others")


def load_module():
    """Loads the module vdrescan. This plugin uses its rules."""
    path = os.path.join(os.path.dirname(__file__), "..", "library", "vdrescan.py")
    spec = importlib.util.spec_from_file_location("vdrescan_rules", path)
    rules = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(rules)
    return rules


RULES = load_module()


def now():
    return datetime.now(timezone.utc)


def fault_of_time(event, text, hours):
    """Why the event does not count, or None if it is at most `hours` old."""
    age = now() - datetime.strptime(text, TIME).replace(tzinfo=timezone.utc)
    if age < timedelta(0):
        return "from the future: the %s is dated %s" % (event, text)
    return None if age < timedelta(hours=hours) else "too old: the %s was at %s" % (event, text)


def time_approved(review):
    """Time of the approval. If a person approved by editing the file, the time of the look counts."""
    return review.get("approved_at") or review["looked"]


def reason_to_pass(review, hours, needs_approval=True):
    """Why there is nothing to delete, or to approve, on this host, or None."""
    if review is None:
        return "no review: there was no look, or the last one did not succeed"
    if review.get("deletion"):
        return "%s; look again" % review["deletion"]
    if not review["stale"]:
        return "clean: the look found nothing stale"
    fault = fault_of_time("look", review["looked"], hours)
    if fault or not needs_approval:
        return fault
    if review["approved"] is not True:
        return "not approved"
    return fault_of_time("approval", time_approved(review), hours)


def lines_of(review):
    lines = RULES.lines_of_findings(review)
    if review["not_checked"]:
        lines.append("not fully checked: " + ", ".join(review["not_checked"]))
    return lines


class ActionModule(ActionBase):
    def run(self, tmp=None, task_vars=None):
        super().run(tmp, task_vars)
        self._vars = task_vars
        self._args = self._task.args
        self._path = os.path.join(self._args["directory"], task_vars["inventory_hostname"] + ".json")
        # Ansible removes this directory when it ends. The other hosts of the batch see the file at once.
        self._stop = os.path.join(constants.DEFAULT_LOCAL_TMP, "vdrescan_stop")
        return getattr(self, "_do_" + self._args["do"])(self._task.check_mode)

    def _read(self):
        """The review, or None if there is none. Raises a ValueError or KeyError if the file is not a review."""
        try:
            with open(self._path, encoding="utf-8") as file:
                review = json.load(file)
        except FileNotFoundError:
            return None
        if not isinstance(review, dict):
            raise ValueError("no object")
        for name in FOUND + ("looked", "approved"):
            review[name]
        for disk in review["stale"]:
            for name in RULES.USE:
                disk[name]
        return review

    def _write(self, review):
        """Replaces the review as a whole."""
        os.makedirs(self._args["directory"], mode=0o700, exist_ok=True)
        part = "%s.%d" % (self._path, os.getpid())
        with open(os.open(part, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w", encoding="utf-8") as file:
            json.dump(review, file, indent=4)
            file.write("\n")
        os.replace(part, self._path)

    def _reason_to_pass(self, needs_approval=True):
        """The review, and why there is nothing to do on this host, or None."""
        try:
            review = self._read()
            return review, reason_to_pass(review, float(self._args["hours"]), needs_approval)
        except (OSError, ValueError, KeyError, TypeError):
            return None, "no review: this cannot be understood: %s" % self._path

    def _limits(self):
        limits = {name: boolean(self._args[name]) for name in ("not_connected", "whole_sessions", "in_use")}
        return dict(limits, max_disks=int(self._args["max_disks"]), seconds=int(self._args["seconds"]))

    def _do_withdraw(self, is_check):
        try:
            review = self._read()
        except (ValueError, KeyError):
            review = None
        if not is_check and os.path.exists(self._path):
            os.remove(self._path)
        return {"review": review}

    def _do_look(self, is_check):
        if is_check:
            return {"report": ["not looked"]}
        looked = now().strftime(TIME)
        result = self._execute_module("vdrescan", task_vars=self._vars, module_args={
            "seconds": int(self._args["seconds"]), "allow_no_disks": boolean(self._args["allow_no_disks"])})
        if result.get("failed"):
            return result
        review = dict(result["found"], looked=looked, approved=False)
        old = self._args["withdrawn"]
        if isinstance(old, dict) and old["approved"] is True and all(old[name] == review[name] for name in FOUND):
            review.update(approved=True, approved_at=time_approved(old))
        self._write(review)
        return result

    def _do_approve(self, is_check):
        review, reason = self._reason_to_pass(needs_approval=False)
        if reason:
            return {"report": [reason]}
        if not is_check:
            self._write(dict(review, approved=True, approved_at=now().strftime(TIME)))
        verb = "would be approved" if is_check else "approved"
        return {"changed": True, "report": ["%s, of the look at %s" % (verb, review["looked"])] + lines_of(review)}

    def _do_read(self, is_check):
        review, reason = self._reason_to_pass()
        if reason:
            return {"due": False, "report": [reason]}
        reason = RULES.refusal(review, self._limits())
        if is_check:
            return {"due": False, "report": ["refused: " + reason if reason else "would be deleted"] + lines_of(review)}
        if reason:
            return {"failed": True, "msg": "; ".join([reason] + lines_of(review))}
        return {"due": True}

    def _first_to_fail(self, contact):
        """Result of this contact with the host. After a failure, the play contacts no other host."""
        if os.path.exists(self._stop):
            return {"failed": True, "msg": "not begun, since another host failed"}
        result = {"failed": True}
        try:
            result = contact()
        except AnsibleConnectionFailure as error:
            # A failure ends the play. After an unreachable host, ansible would continue.
            result["msg"] = "cannot be reached: %s" % error
        finally:
            if result.get("failed") or result.get("unreachable"):
                open(self._stop, "w", encoding="utf-8").close()
        return result

    def _do_reach(self, _is_check):
        return self._first_to_fail(lambda: self._execute_module("ansible.builtin.ping", module_args={},
                                                                task_vars=self._vars))

    def _do_delete(self, _is_check):
        review, reason = self._reason_to_pass()
        if reason:
            return {"failed": True, "msg": "the review has changed: %s" % reason}
        return self._first_to_fail(lambda: self._delete(review))

    def _delete(self, review):
        # A review allows one deletion, even if that fails.
        began = now().strftime(TIME)
        review.update(approved=False, deletion="failed: a deletion began at %s and did not succeed" % began)
        self._write(review)
        result = self._execute_module("vdrescan", task_vars=self._vars,
                                      module_args=dict(self._limits(), reviewed=review["stale"]))
        if not result.get("failed"):
            self._write(dict(review, deletion="done: deleted at %s" % began))
        return result
