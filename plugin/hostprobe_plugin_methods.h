// The method list of xt::hostprobe_plugin: the one place that names each
// method, its index in the method table and its signature (result and
// script arguments, the host pointer not counted).
//
// Everything that exposes the methods expands this list: the native method
// table, the JavaScript and Lua dispatchers and the reference host's `call`.
// Adding a method means adding one row here and writing it in simplugin.
//
//   #define ROW(name, index, signature) ...
//   XT_HOSTPROBE_PLUGIN_METHODS(ROW)
//   #undef ROW
#pragma once

#include "comm/charstr.h"

#include <cstdint>

// ROW(name, index, signature), in table order.
#define XT_HOSTPROBE_PLUGIN_METHODS(ROW)                 \
    ROW(getMAC, 0, velk::charstr())                      \
    ROW(mersenne_twister, 1, uint32_t(uint32_t))         \
    ROW(testfunction, 2, int32_t(int32_t))
