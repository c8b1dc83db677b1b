"""python3 -m korvex FILE [options]: the korvex command, run in this process."""

import signal
import sys

from . import _korvex


def main(argv=None):
    # Ctrl+C outside a solve ends the process as it ends the command; during a solve the
    # solver's own listener turns it into status -5 and exit code 130. An interrupt that
    # the parent process chose to ignore stays ignored, as it would for the command.
    if signal.getsignal(signal.SIGINT) is signal.default_int_handler:
        signal.signal(signal.SIGINT, signal.SIG_DFL)
    return _korvex.run_command(["korvex"] + list(sys.argv[1:] if argv is None else argv))


if __name__ == "__main__":
    sys.exit(main())
