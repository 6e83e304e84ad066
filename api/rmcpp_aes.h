/*
 * rmcpp AES (Rijndael) block cipher: core routines and cipher API.
 * Included by rmcpp.h; plain C.
 */
#ifndef RMCPP_AES_H
#define RMCPP_AES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef RMCPP_API
#define RMCPP_API __attribute__((visibility("default")))
#endif

/* Declarations of the Rijndael core and the cipher API go here. */

#ifdef __cplusplus
}
#endif

#endif /* RMCPP_AES_H */
