/*
 * A secure channel for associations, made with OpenSSL: what VX_Open_Secure_Association and its kin ask for.
 *
 *   VexalTlsOptions options = {0};
 *   options.Host = "archive.example";
 *   char problem[256];
 *   VexalTls* tls = vexal_tls_new(&options, problem, sizeof problem);
 *   VX_Open_Secure_Association(..., vexal_tls_functions(), tls);
 *
 * The handshake has the time that the library leaves for it, of CONNECT_TIMEOUT or ARTIM_TIMEOUT, which it
 * tells by the socket's SO_RCVTIMEO; 15 seconds on a socket without one. TLS 1.2 and 1.3 with the suites of
 * BCP 195 (PS3.15 annex B.9 and B.10). Any thread may use one VexalTls for any number of associations; it
 * must outlive them.
 */
#ifndef VEXALTLS_H
#define VEXALTLS_H

#include <stddef.h>
#include <vexalkit.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct VexalTls VexalTls;

typedef struct VexalTlsOptions {
  const char*
      Certificate; /* PEM file: own certificate with its chain; null for none; an acceptor needs one */
  const char* Key; /* PEM file of its private key; null: in the same file */
  const char* Authorities; /* PEM file: whom the peer's certificate must descend from; null: the system's */
  const char* Host;        /* requester: the name or address that the peer's certificate must prove */
  int32_t Acceptor;        /* 1 on the side that accepts */
  int32_t Strict;          /* 1: only suites with 256-bit keys and forward secrecy */
  int32_t NoVerify;        /* 1: take any certificate; an acceptor then asks for none */
} VexalTlsOptions;

/* Null on failure, with the reason in Problem. The texts of the options are copied. */
VX_API VexalTls* vexal_tls_new(const VexalTlsOptions* Options, char* Problem, size_t ProblemSize);
/* Null does nothing. */
VX_API void vexal_tls_free(VexalTls* Tls);
/* The table for the library; the VexalTls goes with it as ApplicationContext. */
VX_API const SS_Functions* vexal_tls_functions(void);

#ifdef __cplusplus
}
#endif

#endif
