include(HeaderOnly)
h323nat_header_only(CLI11 CLI11::CLI11 CLI)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(CLI11 REQUIRED_VARS CLI11_HEADERS)
