"""Builds the benchmarks and runs them in namespaces of their own."""
import json
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

BENCH = Path(__file__).absolute().parent
ROOT = BENCH.parent
BUNDLES = ROOT / "build/lab/lab"  # the folder of the lab's certificate bundle


def build(folder, targets):
    """Configures and builds into `folder`. Exits with the compiler's output on failure."""
    configure = ["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                 "-DDROAGENT_BENCH=ON", f"-DDROAGENT_PROVISIONING={ROOT / 'provisioning/lab.cmake'}"]
    if shutil.which("ccache"):
        configure += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    for command in (configure, ["cmake", "--build", folder, "--target", *targets]):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            sys.exit(done.stdout[-4000:] + "\nThe build failed")


def isolation(folder):
    """Returns the command prefix that runs a program in namespaces of its own."""
    return [ROOT / "tests/isolated", folder, BUNDLES]


def isolated(folder, program, *arguments, errors=None):
    """Runs a program in namespaces of its own and returns its standard output."""
    command = [*isolation(folder), folder / "bin" / program, *arguments]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=errors, text=True)
    if done.returncode != 0:
        sys.exit(f"{program} failed with status {done.returncode}")
    return done.stdout


def paths(folder, *arguments):
    """Runs the path measurements. Returns the results, and whether every path succeeded; a failed one prints the reason."""
    with tempfile.TemporaryDirectory(dir=folder) as scratch:
        results = Path(scratch) / "paths.json"
        done = subprocess.run([*isolation(folder), folder / "bin/paths", "--json", results, *arguments])
        if not results.exists():
            sys.exit(f"paths failed with status {done.returncode}")
        return json.loads(results.read_text()), done.returncode == 0


def write_results(path, results):
    """Writes one line per result, so that two runs can be compared."""
    lines = ",\n ".join(json.dumps(result) for result in results)
    path.write_text(f"[{lines}]\n")


def add_results(path, results):
    """Adds to a file of results, replacing those with the same names."""
    names = {result["name"] for result in results}
    write_results(path, [result for result in json.loads(path.read_text()) if result["name"] not in names] + results)


def table(head, rows):
    """Returns a Markdown table."""
    return "\n".join(["| " + " | ".join(head) + " |", "|" + "---|" * len(head),
                      *("| " + " | ".join(row) + " |" for row in rows)])
