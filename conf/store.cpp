// mCONF: the data model and accessors.
#include "mconf.h"

namespace {
int g_debugLevel = 0;
}

void mCONF_SetDebugLevel(int level) { g_debugLevel = level; }
