"""Reading boot log lines as the scenario tests compare them."""
import re

STAMP = re.compile(r"^\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\.\d{3,6}\]")

# What a board without /etc/swm_user.conf logs while the front-end prepares its logs.
NO_USER_CFG = [
    "[BOOT_INIT][ERROR]:Get value from cfg failed, open file /etc/swm_user.conf failed, ret=2, "
    "errno=2.",
    "[BOOT_INIT][WARNING]:Get log path from cfg, key is: swm_log_path, value is: . Using default.",
]


def messages(lines):
    """The messages of log lines, each line's time stamp checked and removed."""
    result = []
    for line in lines:
        match = STAMP.match(line)
        assert match, f"log line without time stamp: {line!r}"
        result.append(line[match.end():])
    return result
