// The name type under the name of its room; it lives in Mox/ because entities carry it.
#pragma once

#include "Mox/Name.h"
