# SPDX-License-Identifier: MIT
set(architecture armhf)
set(triple arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(emulator qemu-arm-static)
# The notes are about binaries of g++ before 7; there are none here.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
