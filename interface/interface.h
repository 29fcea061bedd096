// The chief header of the interface registry: what a module needs to enter
// its creators and to find those of others.
//
//   velk::register_creator("ns::iface@wrapper", creator);        // at load
//   velk::creator_fn c = velk::get_creator("ns::iface@wrapper"); // anywhere
//
// interface/interface_register.h holds the registry's table itself, which
// only the module that owns it uses directly.
#pragma once

#include "interface/ifc_autoregger.h"
#include "interface/interface_register.h"
#include "interface/registrar.h"
