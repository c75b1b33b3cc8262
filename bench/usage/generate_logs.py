#!/usr/bin/env python3
"""Writes Claude Code and Codex logs shaped like real ones, for the token benchmarks and the
comparison with ccusage.

  OUT/claude/projects/-home-dev-<project>/<session>.jsonl     (CLAUDE_CONFIG_DIR=OUT/claude)
  OUT/claude/projects/-home-dev-<project>/<session>/subagents/agent-<id>.jsonl
  OUT/codex/sessions/YYYY/MM/DD/rollout-YYYY-MM-DDThh-mm-ss-<id>.jsonl   (CODEX_HOME=OUT/codex)
  OUT/expected.json   the true totals per tool, day and model (see below)

What real logs throw at a reader, and so these do too:
  Claude Code: user lines with long text and long tool results (with escaped JSON inside,
  and a subagent's own "usage" in "toolUseResult", which is no reply); a reply streamed as
  one line per content block with the same message id and request id, where the early lines
  have "stop_reason" null and only part of the output tokens (--duplicates streamed) or the
  full figures (--duplicates exact); sessions resumed into a new file that first copies
  earlier replies; "<synthetic>" replies with zero usage; replies without a request id (older
  versions), each its own message and known by it alone; "cache_creation" split into 5-minute and 1-hour writes;
  sessions that run over local midnight; subagent files in a session's folder; summary and
  file-history-snapshot lines.
  Codex: session_meta with long instructions, turn_context lines naming the model (which may
  change within a session), token_count events with running totals and last_token_usage,
  the same totals written twice, token_count lines whose "info" is null and which carry only
  "rate_limits" (older sessions give "resets_in_seconds", newer ones "resets_at"), reasoning
  with long encrypted content, function calls with long output, and now and then a session
  whose totals start again within the same file (a fork).

Timestamps are spread over the last --days days (the newest a few minutes before --now) in
--timezone; file modification times are those of each file's last line.

expected.json: {"timezone", "now", "duplicates",
  "claude": {"counted": {day: {model: {"input","output","cacheRead","cacheWrite"}}},
             "firstLine": {...}},
  "codex":  {"counted": {...}}}
"counted" books each reply once with its most complete line; "firstLine" books each reply
with the first line of it that appears (what a reader that keeps the first line it sees would
report). With --duplicates exact the two are equal. Codex input is input less the cached part.
"""
import argparse
import datetime as dt
import json
import os
import random
import string
import sys
import uuid
from zoneinfo import ZoneInfo

CLAUDE_MODELS = [
    ("claude-sonnet-4-5-20250929", 0.55),
    ("claude-opus-4-1-20250805", 0.2),
    ("claude-haiku-4-5-20251001", 0.15),
    ("claude-opus-4-5-20251101", 0.1),
]
CODEX_MODELS = ["gpt-5-codex", "gpt-5", "gpt-5.1-codex"]
VERSIONS = ["2.0.14", "2.0.31", "2.0.42", "2.0.55"]
WORDS = ("the a to of and in is it that for on with as this be are function value return file "
         "error test build config request response server client token cache model reply line "
         "offset size chunk ledger window limit reset session project folder path user agent "
         "const let var if else while for switch case break struct class public private static "
         "async await import export from default new delete void int string bool double").split()
UNICODE = ["é", "ü", "ß", "日本語", "—", "…", "✓", "→", "Ω", "🙂"]

FIELDS = ("input", "output", "cacheRead", "cacheWrite")


def compact(obj):
    return json.dumps(obj, separators=(",", ":"), ensure_ascii=False)


class Text:
    """A pool of prose and code snippets, so that long content costs little to make."""

    def __init__(self, rng):
        self.rng = rng
        self.prose = [self._prose(rng.randint(20, 400)) for _ in range(300)]
        self.code = [self._code(rng.randint(5, 400)) for _ in range(300)]

    def _prose(self, words):
        out = []
        for i in range(words):
            w = self.rng.choice(WORDS)
            if self.rng.random() < 0.01:
                w += self.rng.choice(UNICODE)
            out.append(w)
            if self.rng.random() < 0.07:
                out[-1] += "."
        return " ".join(out)

    def _code(self, lines):
        out = []
        indent = 0
        for _ in range(lines):
            kind = self.rng.random()
            if kind < 0.2:
                out.append("  " * indent + f'const {self.rng.choice(WORDS)} = "{self.rng.choice(WORDS)}\\n";')
            elif kind < 0.35 and indent < 6:
                out.append("  " * indent + f"if ({self.rng.choice(WORDS)} != null) {{")
                indent += 1
            elif kind < 0.5 and indent > 0:
                indent -= 1
                out.append("  " * indent + "}")
            elif kind < 0.6:
                out.append("  " * indent + '{"key": "value", "count": 3, "nested": {"ok": true}}')
            else:
                out.append("  " * indent + f"{self.rng.choice(WORDS)}({self.rng.choice(WORDS)}, {self.rng.randint(0, 999)});")
        return "\n".join(out)

    def prose_of(self, at_least):
        parts, size = [], 0
        while size < at_least:
            p = self.rng.choice(self.prose)
            parts.append(p)
            size += len(p)
        return "\n\n".join(parts)

    def code_of(self, at_least):
        parts, size = [], 0
        while size < at_least:
            p = self.rng.choice(self.code)
            parts.append(p)
            size += len(p)
        return "\n".join(parts)


def lognormal_bytes(rng, median, sigma=1.0, low=2000, high=None):
    v = int(rng.lognormvariate(0, sigma) * median)
    v = max(low, v)
    return min(v, high) if high else v


def iso(t):
    return t.astimezone(dt.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S.") + f"{t.microsecond // 1000:03d}Z"


def rand_id(rng, n, alphabet=string.ascii_letters + string.digits):
    return "".join(rng.choice(alphabet) for _ in range(n))


def rng_uuid(rng):
    return str(uuid.UUID(int=rng.getrandbits(128), version=4))


class Totals:
    def __init__(self, tz):
        self.tz = tz
        self.days = {}

    def add(self, when, model, usage):
        day = when.astimezone(self.tz).strftime("%Y-%m-%d")
        slot = self.days.setdefault(day, {}).setdefault(model, dict.fromkeys(FIELDS, 0))
        for f in FIELDS:
            slot[f] += usage[f]


class Generator:
    def __init__(self, args):
        self.args = args
        self.rng = random.Random(args.seed)
        self.text = Text(self.rng)
        self.tz = ZoneInfo(args.timezone)
        self.now = (dt.datetime.fromisoformat(args.now) if args.now else dt.datetime.now(dt.timezone.utc))
        if self.now.tzinfo is None:
            self.now = self.now.replace(tzinfo=self.tz)
        self.start = self.now - dt.timedelta(days=args.days)
        self.latest = self.now - dt.timedelta(minutes=3)
        self.claude_counted = Totals(self.tz)
        self.claude_first = Totals(self.tz)
        self.codex_counted = Totals(self.tz)
        self.files = 0
        self.bytes = 0

    # ---------- shared ----------

    def session_start(self):
        """A start time in the window; one session in ten starts shortly before local midnight."""
        span = (self.latest - self.start).total_seconds()
        t = self.start + dt.timedelta(seconds=self.rng.random() * span * 0.97)
        if self.rng.random() < 0.1:
            local = t.astimezone(self.tz)
            local = local.replace(hour=23, minute=self.rng.randint(30, 58), second=self.rng.randint(0, 59))
            t = local
        return min(t, self.latest - dt.timedelta(hours=1))

    def step(self, t, low, high):
        return min(t + dt.timedelta(seconds=self.rng.uniform(low, high)), self.latest)

    def write(self, path, lines, last_time):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        data = ("\n".join(lines) + "\n").encode("utf-8")
        with open(path, "wb") as f:
            f.write(data)
        stamp = last_time.timestamp()
        os.utime(path, (stamp, stamp))
        self.files += 1
        self.bytes += len(data)

    # ---------- Claude Code ----------

    def claude_usage(self, context, model):
        rng = self.rng
        inp = rng.randint(1, 12) if rng.random() < 0.85 else rng.randint(50, 6000)
        write = 0 if rng.random() < 0.35 else rng.randint(200, 12000)
        one_hour = write if rng.random() < 0.3 else 0
        out = int(rng.lognormvariate(0, 1.1) * (250 if "haiku" in model else 400)) + 1
        return {"input": inp, "output": min(out, 32000), "cacheRead": context, "cacheWrite": write,
                "cache5m": write - one_hour, "cache1h": one_hour}

    def claude_base(self, session, cwd, version, branch, parent, sidechain=False, agent=None):
        base = {"parentUuid": parent, "isSidechain": sidechain, "userType": "external", "cwd": cwd,
                "sessionId": session, "version": version, "gitBranch": branch}
        if agent:
            base["agentId"] = agent
        return base

    def claude_user_line(self, base, t, uid, content, tool_result=None):
        line = dict(base)
        line["type"] = "user"
        line["message"] = {"role": "user", "content": content}
        if tool_result is not None:
            line["toolUseResult"] = tool_result
        line["uuid"] = uid
        line["timestamp"] = iso(t)
        return compact(line)

    def claude_assistant_line(self, base, t, uid, msg_id, req_id, model, block, usage, stop):
        line = dict(base)
        u = {"input_tokens": usage["input"], "cache_creation_input_tokens": usage["cacheWrite"],
             "cache_read_input_tokens": usage["cacheRead"],
             "cache_creation": {"ephemeral_5m_input_tokens": usage["cache5m"],
                                "ephemeral_1h_input_tokens": usage["cache1h"]},
             "output_tokens": usage["output"], "service_tier": "standard"}
        # Claude Code 2.x names the model before the id.
        line["message"] = {"model": model, "id": msg_id, "type": "message", "role": "assistant",
                           "content": [block], "stop_reason": stop, "stop_sequence": None, "usage": u}
        if req_id is not None:
            line["requestId"] = req_id
        line["type"] = "assistant"
        line["uuid"] = uid
        line["timestamp"] = iso(t)
        return compact(line)

    def claude_blocks(self, count):
        rng = self.rng
        blocks = []
        for i in range(count):
            kind = rng.random()
            if i == count - 1 and kind < 0.5:
                name = rng.choice(["Read", "Edit", "Bash", "Grep", "Task", "Write"])
                inputs = {"Read": {"file_path": "/home/dev/src/" + rng.choice(WORDS) + ".ts"},
                          "Edit": {"file_path": "/home/dev/src/app.ts", "old_string": self.text.code_of(200),
                                   "new_string": self.text.code_of(300)},
                          "Bash": {"command": "npm test -- --runInBand", "description": "Run the tests"},
                          "Grep": {"pattern": "output_tokens", "path": "src"},
                          # A subagent's input names a model too, after the reply's own.
                          "Task": {"description": "Search the code", "prompt": self.text.prose_of(400),
                                   "subagent_type": "general-purpose", "model": "haiku"},
                          "Write": {"file_path": "/home/dev/src/new.ts", "content": self.text.code_of(2000)}}[name]
                blocks.append({"type": "tool_use", "id": "toolu_01" + rand_id(rng, 22), "name": name, "input": inputs})
            elif kind < 0.3:
                blocks.append({"type": "thinking", "thinking": self.text.prose_of(rng.randint(200, 3000)),
                               "signature": rand_id(rng, 400, string.ascii_letters + string.digits + "+/")})
            else:
                blocks.append({"type": "text", "text": self.text.prose_of(rng.randint(50, 2500))})
        return blocks

    def claude_session(self, project, budget, copy_from=None, subagent_of=None):
        """Writes one session file of about `budget` bytes; returns the replies it holds for resumes."""
        rng = self.rng
        cwd = "/home/dev/" + project
        session = subagent_of["session"] if subagent_of else rng_uuid(rng)
        version = rng.choice(VERSIONS)
        branch = rng.choice(["main", "main", "feature/limits", "fix/streaming"])
        agent = rand_id(rng, 8, "0123456789abcdef") if subagent_of else None
        t = subagent_of["time"] if subagent_of else self.session_start()
        model = subagent_of["model"] if subagent_of else self.pick_claude_model()
        lines, size, parent = [], 0, None
        replies = []  # (lines of one reply) for later resumes

        if copy_from and not subagent_of:
            lines.append(compact({"type": "summary", "summary": self.text.prose_of(40)[:80],
                                  "leafUuid": rng_uuid(rng)}))
            # A resumed session repeats earlier replies verbatim, all their lines, in order.
            for reply in copy_from[: rng.randint(1, max(1, len(copy_from)))]:
                for line in reply:
                    lines.append(with_session(line, session))
                    size += len(line)
            last_copied = json.loads(lines[-1])["timestamp"]
            t = max(t, dt.datetime.fromisoformat(last_copied.replace("Z", "+00:00")) + dt.timedelta(minutes=5))
            t = min(t, self.latest - dt.timedelta(minutes=30))
        if not subagent_of and rng.random() < 0.3:
            lines.append(compact({"type": "file-history-snapshot", "messageId": rng_uuid(rng),
                                  "snapshot": {"messageId": rng_uuid(rng), "trackedFileBackups": {},
                                               "timestamp": iso(t)}, "isSnapshotUpdate": False}))

        context = rng.randint(12000, 30000)
        while size < budget and t < self.latest:
            base = self.claude_base(session, cwd, version, branch, parent, bool(subagent_of), agent)
            uid = rng_uuid(rng)
            if rng.random() < 0.5 or not replies:
                content = self.text.prose_of(lognormal_bytes(rng, 300, 1.0, 20, 20000))
                line = self.claude_user_line(base, t, uid, content)
            else:
                result = self.text.code_of(lognormal_bytes(rng, 3000, 1.2, 100, 400000))
                content = [{"tool_use_id": "toolu_01" + rand_id(rng, 22), "type": "tool_result", "content": result}]
                extra = {"stdout": result[:2000], "stderr": "", "interrupted": False}
                if rng.random() < 0.1:
                    # A subagent's result carries its own usage; it is a user line, not a reply.
                    extra = {"content": [{"type": "text", "text": result[:1000]}], "totalDurationMs": 81234,
                             "totalTokens": 41234, "usage": {"input_tokens": 12, "output_tokens": 2345,
                                                             "cache_read_input_tokens": 30000}}
                line = self.claude_user_line(base, t, uid, content, extra)
            lines.append(line)
            size += len(line)
            parent = uid
            t = self.step(t, 2, 40)

            if rng.random() < 0.08 and not subagent_of:
                model = self.pick_claude_model()
            context = min(context + rng.randint(300, 6000), 190000)
            if context > 170000 and rng.random() < 0.3:
                context = rng.randint(15000, 30000)  # compacted
            reply_lines, t = self.claude_reply(session, cwd, version, branch, parent, model, context, t,
                                               bool(subagent_of), agent)
            for line in reply_lines:
                lines.append(line)
                size += len(line)
            parent = json.loads(reply_lines[-1])["uuid"]
            replies.append(reply_lines)
            t = self.step(t, 1, 30)

            if not subagent_of and rng.random() < 0.03:
                helper = {"session": session, "time": t, "model": "claude-haiku-4-5-20251001", "cwd": cwd}
                helper_size = min(budget // 10, lognormal_bytes(rng, 150_000, 1.0, 4000, 3_000_000))
                self.claude_session(project, helper_size, subagent_of=helper)
        if not lines:
            return []
        name = f"{session}.jsonl" if not subagent_of else f"{session}/subagents/agent-{agent}.jsonl"
        last = json.loads(lines[-1]).get("timestamp") or iso(t)
        self.write(os.path.join(self.claude_root, "-home-dev-" + project, name), lines,
                   dt.datetime.fromisoformat(last.replace("Z", "+00:00")))
        return replies

    def pick_claude_model(self):
        r, acc = self.rng.random(), 0.0
        for name, share in CLAUDE_MODELS:
            acc += share
            if r < acc:
                return name
        return CLAUDE_MODELS[0][0]

    def claude_reply(self, session, cwd, version, branch, parent, model, context, t, sidechain, agent):
        rng = self.rng
        base = lambda p: self.claude_base(session, cwd, version, branch, p, sidechain, agent)
        # A reply's lines all fall on one local day, so that every reader books it on the same day
        # whichever of its lines it keeps.
        local = t.astimezone(self.tz)
        midnight = (local + dt.timedelta(days=1)).replace(hour=0, minute=0, second=0, microsecond=0)
        if (midnight - local).total_seconds() < 15:
            t = midnight + dt.timedelta(seconds=1)
        if rng.random() < 0.01:
            usage = dict.fromkeys(FIELDS, 0)
            usage.update(cache5m=0, cache1h=0)
            line = self.claude_assistant_line(base(parent), t, rng_uuid(rng), "msg_" + rng_uuid(rng), None,
                                              "<synthetic>", {"type": "text", "text": "No response requested."},
                                              usage, "stop_sequence")
            return [line], t
        usage = self.claude_usage(context, model)
        msg_id = "msg_01" + rand_id(rng, 22)
        if rng.random() < 0.01:
            # An older version: no request id, one line, counted as it comes by everyone.
            line = self.claude_assistant_line(base(parent), t, rng_uuid(rng), msg_id, None, model,
                                              self.claude_blocks(1)[0], usage, "end_turn")
            self.book_claude(t, model, usage, usage)
            return [line], t
        req_id = "req_011C" + rand_id(rng, 20)
        blocks = self.claude_blocks(rng.choice([1, 2, 2, 3, 3, 4]))
        lines, uid = [], parent
        first = None
        final_stop = "tool_use" if blocks[-1]["type"] == "tool_use" else "end_turn"
        partial = sorted(rng.randint(1, max(1, usage["output"] // 3)) for _ in blocks)
        start = t
        for i, block in enumerate(blocks):
            last = i == len(blocks) - 1
            shown = dict(usage)
            if self.args.duplicates == "streamed" and not last:
                shown["output"] = min(partial[i], usage["output"])
            new_uid = rng_uuid(rng)
            lines.append(self.claude_assistant_line(base(uid), t, new_uid, msg_id, req_id, model, block, shown,
                                                    final_stop if last else None))
            if first is None:
                first = shown
            uid = new_uid
            t = self.step(t, 0.2, 3)
        self.book_claude(start, model, usage, first)
        return lines, t

    def book_claude(self, t, model, counted, first):
        self.claude_counted.add(t, model, counted)
        self.claude_first.add(t, model, first)

    def make_claude(self, budget):
        rng = self.rng
        self.claude_root = os.path.join(self.args.out, "claude", "projects")
        projects = [f"{rng.choice(WORDS)}-{rng.choice(WORDS)}-{i}" for i in range(max(3, int(budget / 20e6) + 3))]
        history = {p: [] for p in projects}
        start_bytes = self.bytes
        if self.args.largest_mb:
            # One long-running session: what makes a reader that holds whole files grow.
            self.claude_session(projects[0], int(self.args.largest_mb * 1024 * 1024))
        while self.bytes - start_bytes < budget:
            project = rng.choice(projects)
            size = lognormal_bytes(rng, self.args.avg_file_kb * 700, 1.1, 4000, 60_000_000)
            earlier = history[project]
            copy = rng.choice(earlier) if earlier and rng.random() < 0.15 else None
            replies = self.claude_session(project, size, copy_from=copy)
            if replies:
                earlier.append(replies)

    # ---------- Codex ----------

    def codex_rate_limits(self, t, state, old_format):
        def window(used, minutes, reset_at):
            w = {"used_percent": round(used, 1), "window_minutes": minutes}
            if old_format:
                w["resets_in_seconds"] = max(0, int((reset_at - t).total_seconds()))
            else:
                w["resets_at"] = int(reset_at.timestamp())
            return w
        for key, minutes in (("primary", 300), ("secondary", 10080)):
            if t >= state[key + "_reset"]:
                state[key + "_reset"] = t + dt.timedelta(minutes=minutes)
                state[key] = 0.0
            state[key] = min(100.0, state[key] + self.rng.uniform(0, 2.5 if key == "primary" else 0.4))
        limits = {"primary": window(state["primary"], 300, state["primary_reset"]),
                  "secondary": window(state["secondary"], 10080, state["secondary_reset"])}
        if not old_format:
            limits["credits"] = None
            limits["plan_type"] = None
        return limits

    def codex_session(self, budget, limit_state):
        rng = self.rng
        sid = rng_uuid(rng)
        t = self.session_start()
        local = t.astimezone(self.tz)
        old_format = (t - self.start).total_seconds() < (self.latest - self.start).total_seconds() * 0.3
        cwd = "/home/dev/" + rng.choice(WORDS) + "-service"
        model = rng.choice(CODEX_MODELS)
        lines, size = [], 0

        def add(kind, payload, when):
            nonlocal size
            line = compact({"timestamp": iso(when), "type": kind, "payload": payload})
            lines.append(line)
            size += len(line)

        add("session_meta", {"id": sid, "timestamp": iso(t), "cwd": cwd, "originator": "codex_cli_rs",
                             "cli_version": "0.46.0" if not old_format else "0.36.0",
                             "instructions": self.text.prose_of(rng.randint(2000, 9000)), "source": "cli",
                             "model_provider": "openai",
                             "git": {"commit_hash": rand_id(rng, 40, "0123456789abcdef"), "branch": "main",
                                     "repository_url": "git@example.com:dev/service.git"}}, t)
        total = dict(input=0, cached=0, output=0, reasoning=0)
        while size < budget and t < self.latest:
            if rng.random() < 0.1:
                model = rng.choice(CODEX_MODELS)
            add("response_item", {"type": "message", "role": "user", "content": [
                {"type": "input_text", "text": "<environment_context>\n  <cwd>" + cwd +
                 "</cwd>\n  <approval_policy>on-request</approval_policy>\n</environment_context>"},
                {"type": "input_text", "text": self.text.prose_of(lognormal_bytes(rng, 300, 1.0, 20, 8000))}]}, t)
            add("turn_context", {"cwd": cwd, "approval_policy": "on-request",
                                 "sandbox_policy": {"mode": "workspace-write", "network_access": False,
                                                    "exclude_tmpdir_env_var": False, "exclude_slash_tmp": False},
                                 "model": model, "effort": "medium", "summary": "auto"}, t)
            add("event_msg", {"type": "user_message", "message": "fix the failing test", "kind": "plain"}, t)
            add("event_msg", {"type": "token_count", "info": None,
                              "rate_limits": self.codex_rate_limits(t, limit_state, old_format)}, t)
            for _ in range(rng.randint(1, 6)):
                t = self.step(t, 1, 25)
                add("response_item", {"type": "reasoning", "summary": [{"type": "summary_text", "text":
                                      self.text.prose_of(200)[:300]}], "content": None,
                                      "encrypted_content": "gAAAAA" + rand_id(rng, rng.randint(1500, 9000),
                                                                              string.ascii_letters + string.digits + "-_")}, t)
                call = "call_" + rand_id(rng, 24)
                add("response_item", {"type": "function_call", "name": "shell", "arguments":
                                      compact({"command": ["bash", "-lc", "rg -n token src"], "workdir": cwd}),
                                      "call_id": call}, t)
                t = self.step(t, 0.5, 10)
                add("response_item", {"type": "function_call_output", "call_id": call, "output": compact(
                    {"output": self.text.code_of(lognormal_bytes(rng, 2500, 1.2, 50, 200000)),
                     "metadata": {"exit_code": 0, "duration_seconds": 0.4}})}, t)
                # One model call: the totals move on by what it used.
                inp = rng.randint(3000, 60000)
                cached = int(inp * rng.uniform(0.5, 0.95)) if rng.random() < 0.9 else 0
                out = int(rng.lognormvariate(0, 1.0) * 300) + 1
                reasoning = min(out, int(out * rng.uniform(0, 0.8)))
                last = dict(input=inp, cached=cached, output=out, reasoning=reasoning)
                if rng.random() < 0.05 and all(total[k] > last[k] for k in total):
                    total = dict(input=0, cached=0, output=0, reasoning=0)  # a fork: every total starts again
                for k in total:
                    total[k] += last[k]
                info = {"total_token_usage": codex_usage(total), "last_token_usage": codex_usage(last),
                        "model_context_window": 272000}
                limits = self.codex_rate_limits(t, limit_state, old_format)
                add("event_msg", {"type": "token_count", "info": info, "rate_limits": limits}, t)
                self.codex_counted.add(t, model, {"input": inp - cached, "output": out, "cacheRead": cached,
                                                  "cacheWrite": 0})
                if rng.random() < 0.3:
                    add("event_msg", {"type": "token_count", "info": info, "rate_limits": limits}, t)  # said twice
            t = self.step(t, 1, 10)
            text = self.text.prose_of(rng.randint(100, 1500))
            add("event_msg", {"type": "agent_message", "message": text}, t)
            add("response_item", {"type": "message", "role": "assistant", "content": [
                {"type": "output_text", "text": text}]}, t)
            t = self.step(t, 20, 600)
        name = f"rollout-{local.strftime('%Y-%m-%dT%H-%M-%S')}-{sid}.jsonl"
        path = os.path.join(self.args.out, "codex", "sessions", local.strftime("%Y"), local.strftime("%m"),
                            local.strftime("%d"), name)
        last = json.loads(lines[-1])["timestamp"]
        self.write(path, lines, dt.datetime.fromisoformat(last.replace("Z", "+00:00")))

    def make_codex(self, budget):
        state = {"primary": 0.0, "secondary": 0.0, "primary_reset": self.start, "secondary_reset": self.start}
        start_bytes = self.bytes
        while self.bytes - start_bytes < budget:
            size = lognormal_bytes(self.rng, self.args.avg_file_kb * 700, 1.0, 4000, 40_000_000)
            self.codex_session(size, state)


def codex_usage(u):
    return {"input_tokens": u["input"], "cached_input_tokens": u["cached"], "output_tokens": u["output"],
            "reasoning_output_tokens": u["reasoning"], "total_tokens": u["input"] + u["output"]}


def with_session(line, session):
    """A copied line as the resuming session writes it: the same reply under its own session id."""
    key = '"sessionId":"'
    at = line.index(key) + len(key)
    return line[:at] + session + line[line.index('"', at):]


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--out", required=True, help="folder to write into (must not exist or be empty)")
    ap.add_argument("--size-mb", type=float, default=50, help="total size of the logs")
    ap.add_argument("--codex-share", type=float, default=0.3, help="share of the size written as Codex logs")
    ap.add_argument("--avg-file-kb", type=float, default=400, help="typical session file size")
    ap.add_argument("--largest-mb", type=float, default=0, help="also one Claude Code session of this size")
    ap.add_argument("--days", type=int, default=10)
    ap.add_argument("--timezone", default="UTC", help="IANA zone for days and midnights")
    ap.add_argument("--now", help="ISO 8601 moment the logs end at (default: now)")
    ap.add_argument("--duplicates", choices=["streamed", "exact"], default="streamed",
                    help="streamed: early lines of a reply carry part of its output; exact: all carry the same")
    ap.add_argument("--seed", type=int, default=1)
    args = ap.parse_args()

    if os.path.exists(args.out) and os.listdir(args.out):
        sys.exit(f"{args.out} is not empty; give a new folder.")
    gen = Generator(args)
    total = args.size_mb * 1024 * 1024
    gen.make_codex(total * args.codex_share)
    gen.make_claude(total * (1 - args.codex_share))

    def sort(days):
        return {d: dict(sorted(m.items())) for d, m in sorted(days.items())}

    manifest = {"timezone": args.timezone, "now": iso(gen.now), "duplicates": args.duplicates,
                "claude": {"counted": sort(gen.claude_counted.days), "firstLine": sort(gen.claude_first.days)},
                "codex": {"counted": sort(gen.codex_counted.days)}}
    with open(os.path.join(args.out, "expected.json"), "w") as f:
        json.dump(manifest, f, indent=1)
    print(f"wrote {gen.files} files, {gen.bytes / 1048576:.1f} MiB into {args.out}", file=sys.stderr)


if __name__ == "__main__":
    main()
