"""What python3-pyipmi makes of full sensor records.

Arguments: records, in hexadecimal. For each a line: the values of the raw readings 0 to 255 as hexadecimal floats, and
"none" where there is no value.
"""

import sys

from pyipmi.sdr import SdrCommon


def value(record, raw):
    try:
        return float(record.convert_sensor_raw_to_value(raw)).hex()
    except (ValueError, ZeroDivisionError, OverflowError):
        return "none"


for text in sys.argv[1:]:
    record = SdrCommon.from_data(list(bytes.fromhex(text)))
    print(*(value(record, raw) for raw in range(256)))
