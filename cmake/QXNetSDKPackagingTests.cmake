# Tests of what users get: the installed tree and its consumers, the examples, the Debian
# packages and the Python package. They test packaging, not the code under a sanitizer:
# a sanitizer build's library cannot be loaded by an ordinary program or Python, so they
# are left out there.
option(QXNET_PACKAGING_TESTS "Test install, consumers, examples, Debian and Python packages" ON)
if(QXNET_PACKAGING_TESTS AND QXNET_SANITIZE STREQUAL "")
  add_subdirectory(tests/install)
  add_subdirectory(tests/package)
  add_subdirectory(tests/python)
elseif(QXNET_PACKAGING_TESTS)
  message(STATUS "Packaging tests skipped: this ${QXNET_SANITIZE}-sanitizer build's library is "
    "not loadable by ordinary consumers")
endif()
