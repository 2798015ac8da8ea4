// Run mode -f.
#include "filemode.h"

void RunFileMode() {}
