# shellcheck shell=bash
# ./paddock inventory
: "${project:?}"

command_inventory() {
  need_packages build test
  build dev
  python3 -B "$project/scripts/report_tests.py" --write "$(build_folder dev)" "$project/tests/inventory.txt"
}
