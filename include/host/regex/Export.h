#ifndef CORVANE_HOST_REGEX_EXPORT_H
#define CORVANE_HOST_REGEX_EXPORT_H

// Marks what libtesselregex exports; everything else in it is hidden.
#define CORVANE_REGEX_API __attribute__((visibility("default")))

#endif
