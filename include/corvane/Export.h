#ifndef CORVANE_EXPORT_H
#define CORVANE_EXPORT_H

// Marks what libcorvane exports; everything else in it is hidden.
#define CORVANE_API __attribute__((visibility("default")))

#endif
