#include "driver/logging.h"

Q_LOGGING_CATEGORY(dcp30Event, "dcp30.event", QtWarningMsg)
Q_LOGGING_CATEGORY(dcp30Wire, "dcp30.wire", QtWarningMsg)
