#ifndef CORVANE_HEURISTIC_EXPORT_H
#define CORVANE_HEURISTIC_EXPORT_H

// Marks what libcorvane-heuristic exports; everything else in it is hidden.
#define CORVANE_HEURISTIC_API __attribute__((visibility("default")))

#endif
