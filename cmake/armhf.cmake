# SPDX-License-Identifier: MIT
set(architecture armhf)
set(triple arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
# The notes tell of releases before g++ 7, with which nothing here was built.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
