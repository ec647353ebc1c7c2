#include "pos/printmetrics.h"

// TODO(status file): the report lands with its issue.
void print_metrics(const std::string&, bool, const std::string&) {}
