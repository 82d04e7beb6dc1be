/** @file
 * Encapsulated values, frames and compression. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_PIXEL_DATA_H
#define VEXALKIT_PIXEL_DATA_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/**
 * Gives the next piece of a frame of an encapsulated value. Sizes are even; 0 with IsLast 0 asks to be called
 * again. The buffer must stay valid until the next call.
 */
typedef VX_STATUS (*VX_Set_Encapsulated_Callback)(int32_t MsgID, uint32_t Tag, int32_t IsFirst,
                                                  void* UserInfo, uint32_t* DataSize, void** DataBuffer,
                                                  int32_t* IsLast);

/**
 * Takes a piece of a frame, valid during the call. Each delivery ends with a call of size 0 and IsLast 1.
 */
typedef VX_STATUS (*VX_Get_Encapsulated_Callback)(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                  uint32_t DataSize, void* DataBuffer, int32_t IsFirst,
                                                  int32_t IsLast);

/**
 * Compresses or decompresses one frame. *Context is the codec's own and null before a frame; IsFirst is 1 on
 * the first call of a frame, IsLast on the one that ends its input, which may have no data. *OutSize 0: no
 * output yet; *OutBuffer is the codec's and valid until the next call. A call with Release 1 ends the frame,
 * and follows a failure too: the codec frees *Context.
 */
typedef VX_STATUS (*VX_COMPRESSION_CALLBACK)(int32_t MsgID, void** Context, uint32_t DataSize,
                                             void* DataBuffer, uint32_t* OutSize, void** OutBuffer,
                                             int32_t IsFirst, int32_t IsLast, int32_t Release);

/* ---- Encapsulated values (PS3.5 section A.4) ----------------------------------------------------------- */

/**
 * Starts an encapsulated value of VR OB or OW with the frame that Callback gives in pieces: through the
 * compressor of the object, if it has one, each piece becomes a fragment. The object's transfer syntax must
 * be an encapsulated one. With CREATE_OFFSET_TABLE the table grows with each frame. VX_INVALID_TAG,
 * VX_INCOMPATIBLE_VR, VX_INVALID_TRANSFER_SYNTAX, VX_CALLBACK_CANNOT_COMPLY, VX_CALLBACK_DATA_SIZE_UNEVEN,
 * VX_CALLBACK_PARM_ERROR: a null buffer; VX_VALUE_TOO_LARGE; and what the compressor answers.
 */
VX_API VX_STATUS VX_Set_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                         VX_Set_Encapsulated_Callback Callback);

/**
 * Appends the next frame. As VX_Set_Encapsulated_Value_From_Function.
 */
VX_API VX_STATUS VX_Set_Next_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                              VX_Set_Encapsulated_Callback Callback);

/**
 * Writes the delimiter behind the last frame. VX_INCOMPATIBLE_VR, VX_INVALID_TRANSFER_SYNTAX; VX_INVALID_TAG:
 * nothing was stored.
 */
VX_API VX_STATUS VX_Close_Encapsulated_Value(int32_t MsgID, uint32_t Tag);

/**
 * Delivers the first frame of an encapsulated value, through the object's decompressor if it has one.
 * VX_END_OF_FRAME: more frames follow; VX_NORMAL_COMPLETION: it was the last. Without an offset table and
 * without a decompressor all data comes in one run. VX_INVALID_TAG, VX_INCOMPATIBLE_VR,
 * VX_INVALID_TRANSFER_SYNTAX; VX_EMPTY_VALUE, also where the object does not say how large a frame is;
 * VX_NULL_VALUE; VX_ENCAPSULATED_TOO_SHORT, VX_MISSING_DELIMITER: the value is broken;
 * VX_COMPRESSION_FAILURE; VX_CALLBACK_CANNOT_COMPLY: the callback that holds the value; and what Callback
 * answers.
 */
VX_API VX_STATUS VX_Get_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                       VX_Get_Encapsulated_Callback Callback);

/**
 * Goes on behind the last delivery. VX_NO_MORE_VALUES: that was the last frame; else as
 * VX_Get_Encapsulated_Value_To_Function.
 */
VX_API VX_STATUS VX_Get_Next_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                            VX_Get_Encapsulated_Callback Callback);

/**
 * Delivers one frame of Pixel Data (7FE0,0010), native or encapsulated, by its number from 0. Where a value
 * has no offset table each fragment is a frame, or the decompressor finds where frames end.
 * VX_NO_MORE_VALUES: there is no such frame; VX_EMPTY_VALUE for a negative number; else as
 * VX_Get_Encapsulated_Value_To_Function.
 */
VX_API VX_STATUS VX_Get_Frame_To_Function(int32_t MsgID, int32_t FrameNumber, void* UserInfo,
                                          VX_Get_Encapsulated_Callback Callback);

/**
 * Delivers the offset table of Pixel Data in one piece: the bytes of its entries as a 32-bit number, then the
 * entries, little endian. VX_INVALID_TAG, VX_INCOMPATIBLE_VR; VX_EMPTY_VALUE: there is none;
 * VX_ENCAPSULATED_TOO_SHORT, VX_MISSING_DELIMITER.
 */
VX_API VX_STATUS VX_Get_Offset_Table_To_Function(int32_t MsgID, void* UserInfo,
                                                 VX_Get_Encapsulated_Callback Callback);

/* ---- Compression --------------------------------------------------------------------------------------- */

/**
 * Gives an object the functions through which frames of its Pixel Data are written and read; null for none.
 * The items of a message that hold encapsulated pixels get them too. VX_INVALID_MESSAGE_ID;
 * VX_INVALID_TRANSFER_SYNTAX: the object's syntax is not an encapsulated one.
 */
VX_API VX_STATUS VX_Register_Compression_Callbacks(int32_t MsgID, VX_COMPRESSION_CALLBACK Compressor,
                                                   VX_COMPRESSION_CALLBACK Decompressor);

/**
 * Compression callback for RLE (PS3.5 annex G): 8 and 16 bits, any number of samples up to 4, by pixel or by
 * plane. The frame comes out at the call with IsLast 1. VX_CALLBACK_CANNOT_COMPLY; VX_CANNOT_COMPLY: more
 * data than a frame.
 */
VX_API VX_STATUS VX_RLE_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                   uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                   int32_t Release);

/**
 * Its counterpart. The frame comes out as soon as it is complete, an odd one with one zero byte behind it.
 */
VX_API VX_STATUS VX_RLE_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                     uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                     int32_t Release);

/**
 * Compression callback for JPEG (baseline, and extended with 8, 10 and 12 bits), JPEG Lossless (process 14,
 * selection value 1), JPEG-LS and JPEG 2000; the object's transfer syntax chooses. The frame comes out at the
 * call with IsLast 1. Settings:
 *   COMPRESSION_LUM_FACTOR, COMPRESSION_CHROM_FACTOR  entry of a JPEG table = entry of ISO/IEC 10918-1 annex
 * K
 *     * factor / 32, from 1 to 255: 32 takes the tables as they are, larger is coarser
 *   COMPRESSION_RGB_TRANSFORM_FORMAT  "YBR_FULL_422": RGB becomes that in JPEG, with half its chrominance
 *     samples; "YBR_FULL": it stays RGB, with all its samples
 *   JPEG_LS_LOSSY  is near-lossless with 10, or half the largest sample if that is less; a signed frame with
 *     samples that near to the ends of their range, where an error would turn the sign, is coded without loss
 *   COMPRESSION_WHEN_J2K_USE_LOSSY  JPEG_2000 is lossy, else lossless
 *   COMPRESSION_J2K_LOSSY_RATIO  bits allocated over bits written
 *   COMPRESSION_J2K_LOSSY_QUALITY, with COMPRESSION_J2K_LOSSY_USE_QUALITY  tenths of the bits of a pixel that
 *     are written; 0 writes as little as can be
 * Bits above Bits Stored that repeat the sign are left out and come back; others make lossless codecs keep
 * all bits allocated, and lossy ones refuse. JPEG knows no sign: in a signed image the step from -1 to 0 is
 * one over the whole range, and costs as much. VX_CALLBACK_CANNOT_COMPLY, after lines in the log.
 */
VX_API VX_STATUS VX_Standard_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                        uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                        int32_t Release);

/**
 * Its counterpart. The frame comes out where its code stream ends, pixel by pixel, an odd one with one zero
 * byte behind it; YBR_FULL_422 as Y1 Y2 Cb Cr. IGNORE_JPEG_BAD_SUFFIX decides what a JPEG Lossless stream
 * without its end is: below 0 warned of, 0 refused, above 0 taken. VX_CALLBACK_CANNOT_COMPLY, after lines in
 * the log.
 */
VX_API VX_STATUS VX_Standard_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                          uint32_t* OutSize, void** OutBuffer, int32_t IsFirst,
                                          int32_t IsLast, int32_t Release);

/**
 * Compresses whatever its target takes, without the checks of VX_RLE_Compressor and VX_Standard_Compressor on
 * photometric interpretations: palettes and YBR_FULL without loss, YBR_FULL also as JPEG, colour of 16 bits
 * as JPEG Lossless, JPEG-LS and JPEG 2000, 1 and 32 bits allocated as RLE. Colour keeps its label where the
 * codec does not transform it. For programs that compress images of others. VX_CALLBACK_CANNOT_COMPLY, after
 * lines in the log.
 */
VX_API VX_STATUS VX_General_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                       uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                       int32_t Release);

/**
 * Decompresses whatever the codecs can, without the checks of the two decompressors above: also JPEG with
 * spectral selection and progressive JPEG, JPEG Lossless with all predictors under its older syntax, every
 * photometric interpretation, RLE with 1 and 32 bits allocated. Colour comes out as the image is labelled,
 * but YBR_ICT and YBR_RCT as RGB. Where the object has Total Pixel Matrix Columns, a stream that is smaller
 * than the frame fills it from its upper left, its last row and column repeated. For programs that show or
 * convert images of others. VX_CALLBACK_CANNOT_COMPLY, after lines in the log.
 */
VX_API VX_STATUS VX_General_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                         uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                         int32_t Release);

/**
 * Makes a deep copy of a message, an item or a file, its Pixel Data in TransferSyntax: frames go through the
 * decompressor of the source and through Compressor, one at a time. Both functions given become the copy's.
 * Without Compressor and with the same syntax the value is copied as it is. With
 * UPDATE_GROUP_0028_ON_DUPLICATE the attributes that tell of compression are brought up to date. A failure
 * leaves in *DestID what was copied so far, for the caller to free. VX_INVALID_MESSAGE_ID, also for
 * directories and structured reports; VX_INVALID_TRANSFER_SYNTAX, VX_DECOMPRESSOR_REQUIRED,
 * VX_COMPRESSOR_REQUIRED, VX_COMPRESSION_FAILURE, VX_CANNOT_COMPLY: Pixel Data is less than a frame;
 * VX_INVALID_VALUE_FOR_VR: more than 128 sequences within each other; VX_CALLBACK_CANNOT_COMPLY, and what the
 * functions answer.
 */
VX_API VX_STATUS VX_Duplicate_Message(int32_t SourceID, int32_t* DestID, VX_TRANSFER_SYNTAX TransferSyntax,
                                      VX_COMPRESSION_CALLBACK Compressor,
                                      VX_COMPRESSION_CALLBACK Decompressor);

/**
 * Releases what the codecs keep for the calling thread; a thread that used them calls it before it ends.
 */
VX_API VX_STATUS VX_Thread_Release(void);

#ifdef __cplusplus
}
#endif

#endif
