"""What the programs of this folder share: building the benchmarks, and running one in namespaces of its own."""
import json
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

BENCH = Path(__file__).absolute().parent
ROOT = BENCH.parent
BUNDLES = ROOT / "build/lab/lab"  # where the lab's provisioning has the agent look for certificates


def build(folder, targets):
    """Configures and builds into `folder`; ends the program with what went wrong."""
    configure = ["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                 "-DDROAGENT_BENCH=ON", f"-DDROAGENT_PROVISIONING={ROOT / 'provisioning/lab.cmake'}"]
    if shutil.which("ccache"):
        configure += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    for command in (configure, ["cmake", "--build", folder, "--target", *targets]):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            sys.exit(done.stdout[-4000:] + "\nThe build failed")


def isolation(folder):
    """The command in front of one that is to run in namespaces of its own."""
    return [ROOT / "tests/isolated", folder, BUNDLES]


def isolated(folder, program, *arguments, errors=None):
    """The program's standard output."""
    command = [*isolation(folder), folder / "bin" / program, *arguments]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=errors, text=True)
    if done.returncode != 0:
        sys.exit(f"{program} failed with status {done.returncode}")
    return done.stdout


def roads(folder, *arguments):
    """What the roads' program reports, and whether every road held: one that fails says why and leaves the others be."""
    with tempfile.TemporaryDirectory(dir=folder) as scratch:
        results = Path(scratch) / "roads.json"
        done = subprocess.run([*isolation(folder), folder / "bin/roads", "--json", results, *arguments])
        if not results.exists():
            sys.exit(f"roads failed with status {done.returncode}")
        return json.loads(results.read_text()), done.returncode == 0


def write_results(path, results):
    """One line for each, so that two runs can be compared."""
    lines = ",\n ".join(json.dumps(result) for result in results)
    path.write_text(f"[{lines}]\n")


def add_results(path, results):
    """Adds to a file of results, in the place of any of the same names."""
    names = {result["name"] for result in results}
    write_results(path, [result for result in json.loads(path.read_text()) if result["name"] not in names] + results)


def table(head, rows):
    """As Markdown has it."""
    return "\n".join(["| " + " | ".join(head) + " |", "|" + "---|" * len(head),
                      *("| " + " | ".join(row) + " |" for row in rows)])
