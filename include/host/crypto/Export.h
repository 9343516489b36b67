#ifndef CORVANE_HOST_CRYPTO_EXPORT_H
#define CORVANE_HOST_CRYPTO_EXPORT_H

// Marks what libtesselcrypto exports; everything else in it is hidden.
#define CORVANE_CRYPTO_API __attribute__((visibility("default")))

#endif
