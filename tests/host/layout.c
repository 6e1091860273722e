/* The layout as a C host sees it. */
#include "layout.h"
