"""A private session bus that can start what a test puts into its folder, and nothing of the machine's."""
from pathlib import Path

from panel import PrivateBus

CONFIGURATION = """<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen><servicedir>SERVICES</servicedir>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/></policy>
</busconfig>"""


def starting_bus(services):
    configuration = Path(services) / "bus.conf"
    configuration.write_text(CONFIGURATION.replace("SERVICES", str(services)))
    return PrivateBus(f"--config-file={configuration}")
