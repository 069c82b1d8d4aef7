"""What the programs of this folder share: building the benchmarks, and running one in namespaces of its own."""
import shutil
import subprocess
import sys
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


def isolated(folder, program, *arguments, errors=None):
    """The program's standard output."""
    command = [ROOT / "tests/isolated", folder, BUNDLES, folder / "bin" / program, *arguments]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=errors, text=True)
    if done.returncode != 0:
        sys.exit(f"{program} failed with status {done.returncode}")
    return done.stdout
