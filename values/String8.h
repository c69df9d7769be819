// The text type under the name of its room; it lives in Mox/ because exceptions carry it.
#pragma once

#include "Mox/String8.h"
