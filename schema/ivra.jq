# What "ivra-bsp board --json" prints (board-1.json, beside this file in schema/), as numbers and structures, for jq 1.6 or
# later. Numbers are in base units: volts, amperes, degrees Celsius, watts, revolutions per minute, bytes. What a board does
# not tell, or tells as "Error", "unavailable", "inf" or "nan", is null. A text of another form is an error, never 0.
#
# Members are called as in the documents of "ivra-bsp readings" where they say the same thing; lanes count from 1 as there.
# A number is as exact as the text that it is made of, which may be rounded: readings has all digits.
#
#   ivra-bsp board --json -a 2 show sensors |
#       jq -L /usr/share/ivra 'include "ivra"; report.sensors[] | select(.unit == "celsius" and .value > 40) | .name'
#   ivra-bsp board --json -a 4 show flash |
#       jq -L /usr/share/ivra 'include "ivra"; report.flash | .size - ([.sections[].size] | add)'
#   ivra-bsp board --json -a 4 show transceivers |
#       jq -L /usr/share/ivra 'include "ivra"; report.modules[] | {cage, rx: [.lanes[]?.rx_power_dbm]}'
#   ivra-bsp board --json list |
#       jq -L /usr/share/ivra -r 'include "ivra"; report.accelerators[] | [.index, .name, .mac] | @tsv'

def _captured($pattern; $kind):
  first(capture($pattern)) // error("not \($kind): \(.)");

# By the unit of a text: what is measured, in which base unit, and the power of ten that makes it of the text's number.
def _units:
  {
    "°C": ["temperature", "celsius", ""],
    "V": ["voltage", "volts", ""],
    "mV": ["voltage", "volts", "e-3"],
    "A": ["current", "amperes", ""],
    "mA": ["current", "amperes", "e-3"],
    "W": ["power", "watts", ""],
    "mW": ["power", "watts", "e-3"],
    "RPM": ["fan speed", "rpm", ""]
  };

# "3313 mV" is {"quantity": "voltage", "unit": "volts", "value": 3.313}; with a unit that is not above, such as "°F" or
# "A/s", the quantity is "other". "Unavailable" has null for all three.
def quantity:
  if ascii_downcase == "unavailable" then { quantity: null, unit: null, value: null }
  else
    _captured("^(?<number>-?[0-9]+(\\.[0-9]+)?(e[+-][0-9]+)?|-?inf|nan) ?(?<unit>|[^0-9. ]+)$"; "a number with a unit")
    | (_units[.unit] // ["other", .unit, ""]) as [$quantity, $unit, $exponent]
    | { $quantity, $unit, value: (.number | if test("^-?[0-9]") then . + $exponent | tonumber else null end) }
  end;

def _value($unit):
  quantity as $q
  | if $q.unit == null or $q.unit == $unit then $q.value else error("not in \($unit): \(.)") end;

# "45.5°C", "34.50 °C", "41 °C"
def celsius: _value("celsius");
# "3.305 V", "3313 mV"
def volts: _value("volts");
# "6.818 mA", "1.25 A"
def amperes: _value("amperes");
# "736 mW", "0.501 mW (-3.000 dBm)"
def watts: sub(" \\(-?[0-9.]+ dBm\\)$"; "") | _value("watts");
# "0.501 mW (-3.000 dBm)" is -3; "0.000 mW" is null
def dbm: first(capture("^[0-9.]+ mW \\((?<dbm>-?[0-9.]+) dBm\\)$")) // null | if . == null then . else .dbm | tonumber end;

# "134217728 bytes (128 MB)", "65536 bytes"
def bytes: _captured("^(?<count>[0-9]+) bytes( \\([0-9]+ MB\\))?$"; "a size in bytes").count | tonumber;

# "0x1002000"; exact up to 2^53
def hexadecimal:
  _captured("^(0x)?(?<digits>[0-9A-Fa-f]+)$"; "a hexadecimal number").digits
  | ascii_downcase
  | reduce explode[] as $digit (0; . * 16 + if $digit > 57 then $digit - 87 else $digit - 48 end);

# "02:00:00:00:10:00" as a number of 48 bits, to compare and count
def mac_number:
  _captured("^(?<address>[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5})$"; "a MAC address").address | gsub(":"; "") | hexadecimal;

# "02:00:00:00:10:00 - 02:00:00:00:10:03", or one address: the first one, and how many there are as they follow each other
def macs:
  split(" - ")
  | { first: .[0], count: ((.[-1] | mac_number) - (.[0] | mac_number) + 1) };

# "0x0000000 - 0x1001fff"
def address_range:
  if startswith("Error") then { start: null, size: null }
  else
    _captured("^(?<first>0x[0-9a-f]+) - (?<last>0x[0-9a-f]+)$"; "a range of addresses")
    | (.first | hexadecimal) as $start
    | ((.last | hexadecimal) - $start + 1) as $size
    | { $start, size: (if $size > 9007199254740992 then 0 else $size end) } # of 0 bytes at 0: the last byte is below 0
  end;

def _unless_error: if . == "Error" then null else . end;
def _serial: if . == "Error" or . == "Not available" then null else . end;
def _after($word): _captured("^\($word) (?<number>[0-9]+)$"; $word).number | tonumber;

def _lane($number):
  {
    lane: $number,
    rx_power: (.["RX power"] | watts),
    rx_power_dbm: (.["RX power"] | dbm),
    tx_power: (.["TX power"] | if . == null then . else watts end),
    tx_power_dbm: (.["TX power"] | if . == null then . else dbm end),
    tx_bias: (.["TX bias"] | amperes)
  };

# A member of "Transceivers". state: ok, empty, or failed with an "error" (a module whose memory is not known is one).
def cage:
  { cage: (.Port | _after("Port")) }
  + if .Type == "no transceiver detected" and (has("Error") | not) then { state: "empty" }
    else
      (if has("Error") then { state: "failed", error: .Error } else { state: "ok" } end)
      + { type: .Type, vendor: .["Vendor name"], part: .["Vendor PN"] }
      + (if has("Temperature") then { temperature: (.Temperature | celsius), supply: (.VCC | volts) } else {} end)
      + {
          lanes: (
            [.["Channel info"] // empty | _lane(1)]
            + [.Channels[]? | _lane((.Channel | _after("Channel")) + 1)]
          )
        }
    end;

# A row of "Sensor" that has a number: its value and, of an Alveo board, average and peak.
def sensor:
  { name: .sensors }
  + (.Value // .Current | quantity)
  + (if has("Average") then { average: (.Average | quantity.value), peak: (.Maximum | quantity.value) } else {} end);

def _is_power_good: .Current == "Good" or .Current == "Bad";

# A whole document: whether the command succeeded, the errors that it logged, and what it reported, each member only when
# there was such a report.
def report:
  { success: .status.success, errors: [.log[] | select(.type == "error").message] }
  + (
      .data
      | (
          if has("accelerators") then
            {
              accelerators: [
                .accelerators[]
                | {
                    name: .Name,
                    index: (.ID | _unless_error | if . == null then . else tonumber end),
                    model: (.["Board model"] | _unless_error),
                    mac: (.["Board base MAC"] | _unless_error),
                    serial: (.["Board serial"] | _serial)
                  }
              ]
            }
          else {} end
        )
      + (
          if has("Accelerator") then
            .Accelerator
            | {
                accelerator: {
                  name: .Name,
                  index: (.ID | tonumber),
                  model: .["Board model"],
                  serial: (.["Board serial"] | _serial),
                  fpga: { device: .["FPGA device"], serial: (.["FPGA serial"] | ltrimstr("0x")), temperature: (.Temperature | celsius) },
                  macs: (.["MAC address"] // .["MAC addresses"] | if . == null then . else macs end)
                }
              }
          else {} end
        )
      + (if has("Boot image") then { boot_image: (.["Boot image"] | { current: .["Current boot"], next: .["Next reload"] }) } else {} end)
      + (
          if has("Flash memory") then
            .["Flash memory"]
            | {
                flash: {
                  size: (.["Memory size"] | bytes),
                  sector_size: (.["Sector size"] | bytes),
                  sections: [.Sections[] | to_entries[] | { name: .key } + (.value | address_range)]
                }
              }
          else {} end
        )
      + (if has("Transceivers") then { modules: [.Transceivers[] | cage] } else {} end)
      + (
          if has("Sensors") then
            .Sensors.Sensor // []
            | { sensors: [.[] | select(_is_power_good | not) | sensor] }
              + (map(select(_is_power_good)) | if length == 0 then {} else { power_good: (.[0].Current == "Good") } end)
          else {} end
        )
    );
