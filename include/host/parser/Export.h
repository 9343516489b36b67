#ifndef CORVANE_HOST_PARSER_EXPORT_H
#define CORVANE_HOST_PARSER_EXPORT_H

// Marks what libtesselparser exports; everything else in it is hidden.
#define CORVANE_PARSER_API __attribute__((visibility("default")))

#endif
