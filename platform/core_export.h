#pragma once

#include "vantamo/export.h"

/// Marks what our own cores, and the local endpoint of demo and tests, use of the module's library
/// beyond its public headers. A shared library shows it under a version name that carries the exact
/// version (cmake/vantamo.map.in): it is nothing for hosts, and a core of another version does not
/// load with this library.
#define VANTAMO_CORE_EXPORT VANTAMO_EXPORT
