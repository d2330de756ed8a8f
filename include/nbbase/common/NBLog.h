// NBLog lives with the values and queues (nbbase/foundation/NBLog.h), so that every layer, the ground
// floor included, can log. This header keeps the older include path working for hosts and plug-ins.
#pragma once

#include "nbbase/foundation/NBLog.h"
