// The built add-on, loaded and started once for the whole benchmark run.
#ifndef BENCH_ADDON_BENCH_H
#define BENCH_ADDON_BENCH_H

#include "AddonHost.h"

AddonHost& LoadedAddon();

#endif
