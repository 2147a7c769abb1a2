"""Runs quelld_sim --json on the example scenario and checks the summary with a real JSON parser.

usage: check_json.py QUELLD_SIM EXAMPLE_SCENARIO
"""
import json
import os
import subprocess
import sys
import tempfile


def main():
    sim, scenario = sys.argv[1], sys.argv[2]
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "summary.json")
        env = dict(os.environ, TMPDIR=tmp)
        run = subprocess.run([sim, "--scenario", scenario, "--json", out], env=env,
                             capture_output=True, text=True, check=False)
        assert run.returncode == 0, run.stdout + run.stderr
        with open(out, encoding="ascii") as f:
            s = json.load(f)
        assert os.listdir(tmp) == ["summary.json"], os.listdir(tmp)  # work directory removed

    assert s["format"] == 1 and s["result"] == "ok" and s["problems"] == [], s
    ev = s["events"]
    # The example's own expectations, plus the reload phase's probe user (login, tick, send,
    # logout).
    assert (ev["login"], ev["logout"], ev["tick"], ev["msg"], ev["send"]) == (7, 6, 17, 8, 5), ev
    assert ev["relayed"] == 43 and ev["reload"] == 4, ev
    sdk = s["sdk_results"]
    assert sdk["add_user"] == {"calls": 7, "failures": 1}, sdk
    assert sdk["tick_user"] == {"calls": 17, "failures": 1}, sdk
    assert (sdk["started"], sdk["released"]) == (3, 3), sdk
    assert s["sends"]["reached_host"] == 5 and s["sends"]["refused"] == 1, s["sends"]
    assert [r["outcome"] for r in s["reloads"]] == ["kept", "restarted", "kept", "restarted"]
    assert [r["sdk_file_changed"] for r in s["reloads"]] == [False, True, False, True]
    lat = s["latency_ns"]
    assert 0 < lat["relative_error"] < 0.01
    assert lat["all"]["count"] == ev["relayed"], lat
    for name, row in lat.items():
        if name != "relative_error":
            assert row["p50"] <= row["p90"] <= row["p99"] <= row["max"], (name, row)
    assert s["throughput"]["events_per_second"] > 0, s["throughput"]
    # Planned before the run: 39 user events and 3 host ticks, not counting the reload phase.
    assert s["scenario"]["planned_events"] == 42, s["scenario"]
    assert s["scenario"]["planned_bytes"] == 3 * 5 + 3 * 256 + 29 + 11 + 2 * 100 + 13, s["scenario"]
    print("quelld_sim --json: summary parsed and checked")


if __name__ == "__main__":
    main()
