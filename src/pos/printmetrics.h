#pragma once

#include <string>

// Writes the metrics report of the .pos file at `path` on standard output, in plain text
// or in the tagged form of -x (which closes the "<proof>" element). `name` is the label
// after "TOTAL for ". A file without a document gives an error line and an all-zero
// report.
void print_metrics(const std::string& path, bool xml, const std::string& name);

// Writes the line that reports the .pos file at `path` as unreadable: "Error" or
// "<error>" directly followed by "File not readable " and the path.
void print_file_not_readable(const std::string& path, bool xml);
