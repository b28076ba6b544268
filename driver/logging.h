#ifndef DCP30_LOGGING_H
#define DCP30_LOGGING_H

#include <QLoggingCategory>

// "dcp30.event": what the driver and its worker decide (start refused, medium
// missing, take-down, log files). "dcp30.wire": bytes on the controller line.
// Enable with QT_LOGGING_RULES="dcp30.*.debug=true".
Q_DECLARE_LOGGING_CATEGORY(dcp30Event)
Q_DECLARE_LOGGING_CATEGORY(dcp30Wire)

#endif
