/** @file
 * What the head of a compressed frame says of its image. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_CODE_STREAMS_H
#define VEXALKIT_CODE_STREAMS_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An image as a code stream describes it, which need not be as the attributes of its object do. */
typedef struct CodeStreamObj {
  uint32_t Rows;            /* pixels from the top to the bottom */
  uint32_t Columns;         /* pixels from the left to the right */
  uint32_t SamplesPerPixel; /* components */
  uint32_t BitsPerSample;   /* the precision of the first component */
  int32_t IsSigned; /* 1: samples have a sign; 0: they have none; -1: streams of this kind do not say */
} CodeStreamObj;

/**
 * Reads the head of a code stream; nothing is decoded.
 * @param Syntax  the transfer syntax of the frame: JPEG, JPEG-LS, JPEG 2000 and what came after them.
 * @param Data  the stream from its first byte on: the first fragment of a frame will mostly do.
 * @param Size  bytes of it.
 * @param Description  [out] what the head says.
 * @retval VX_INVALID_TRANSFER_SYNTAX  there is no codec for it, or its frames say nothing of their image, as
 *   those of RLE (PS3.5 annex G) and uncompressed ones.
 * @retval VX_CANNOT_COMPLY  the library behind the codec is not installed.
 * @retval VX_COMPRESSION_FAILURE  the data is no stream of that kind, its head is broken or ends beyond the
 *   data, or the stream is of a process that the codec does not take.
 */
VX_API VX_STATUS VX_Describe_Code_Stream(VX_TRANSFER_SYNTAX Syntax, const void* Data, uint32_t Size,
                                         CodeStreamObj* Description);

#ifdef __cplusplus
}
#endif

#endif
