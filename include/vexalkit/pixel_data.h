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
 * Gives the next piece of a frame of an encapsulated value.
 * @param MsgID,Tag  the object and the attribute that are written.
 * @param IsFirst  1 on the first call for a frame, else 0.
 * @param UserInfo  as the caller passed it.
 * @param DataSize  [out] bytes of the piece, an even number; 0 with IsLast 0 asks to be called again.
 * @param DataBuffer  [out] the piece, the callback's own; it must stay valid until the next call.
 * @param IsLast  [out] not 0: this is the last piece of the frame.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the work with VX_CALLBACK_CANNOT_COMPLY.
 */
typedef VX_STATUS (*VX_Set_Encapsulated_Callback)(int32_t MsgID, uint32_t Tag, int32_t IsFirst,
                                                  void* UserInfo, uint32_t* DataSize, void** DataBuffer,
                                                  int32_t* IsLast);

/**
 * Takes a piece of a frame.
 * @param MsgID,Tag  the object and the attribute that are read.
 * @param UserInfo  as the caller passed it.
 * @param DataSize  bytes of the piece.
 * @param DataBuffer  the piece, valid during the call; null where DataSize is 0.
 * @param IsFirst  1 with the first piece of a delivery, else 0.
 * @param IsLast  1 on the call that ends a delivery, which has DataSize 0 and brings nothing.
 * @return VX_NORMAL_COMPLETION to go on; anything else ends the delivery, and the function that was called
 *     answers it.
 */
typedef VX_STATUS (*VX_Get_Encapsulated_Callback)(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                  uint32_t DataSize, void* DataBuffer, int32_t IsFirst,
                                                  int32_t IsLast);

/**
 * Compresses or decompresses one frame, in one call or in several.
 * @param MsgID  the object whose pixels these are.
 * @param Context  [in,out] the codec's own; *Context is null before a frame.
 * @param DataSize  bytes of the input; 0 is possible.
 * @param DataBuffer  the input, valid during the call.
 * @param OutSize  [out] bytes of the output; 0: none yet.
 * @param OutBuffer  [out] the output, the codec's own, valid until the next call.
 * @param IsFirst  1 on the first call of a frame, else 0.
 * @param IsLast  1 on the call that ends the input of a frame, else 0.
 * @param Release  1 on the call that ends a frame and follows a failure too: the codec frees *Context and
 *     sets it to null, and what the other arguments hold does not count.
 * @return VX_NORMAL_COMPLETION to go on; anything else is a failure, which a decompressor's caller answers as
 *     VX_COMPRESSION_FAILURE and a compressor's as it is.
 */
typedef VX_STATUS (*VX_COMPRESSION_CALLBACK)(int32_t MsgID, void** Context, uint32_t DataSize,
                                             void* DataBuffer, uint32_t* OutSize, void** OutBuffer,
                                             int32_t IsFirst, int32_t IsLast, int32_t Release);

/* ---- Encapsulated values (PS3.5 section A.4) ----------------------------------------------------------- */

/**
 * Starts an encapsulated value with its first frame, which Callback gives in pieces.
 * Each piece becomes a fragment; where the object has a compressor, each piece of its output does. With
 * CREATE_OFFSET_TABLE the value has an offset table, which grows with each frame. After a failure the value
 * is empty or in part.
 * @param MsgID  message, item or file; its transfer syntax must be an encapsulated one.
 * @param Tag  attribute of VR OB or OW, which is added if the object has none; its former value goes.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  gives the pieces.
 * @retval VX_INVALID_TAG  the object has no such attribute and does not take it.
 * @retval VX_INCOMPATIBLE_VR  its VR is neither OB nor OW.
 * @retval VX_INVALID_TRANSFER_SYNTAX  the object's syntax is not set, or not an encapsulated one.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Callback refused.
 * @retval VX_CALLBACK_DATA_SIZE_UNEVEN  Callback told an odd size.
 * @retval VX_CALLBACK_PARM_ERROR  Callback told a size and gave no buffer.
 * @retval VX_VALUE_TOO_LARGE  the value has more bytes than 32 bits count.
 * @retval VX_TEMP_FILE_ERROR  the value could not be written to its temporary file.
 * @return Otherwise the status with which the compressor, or the callback that holds the value, failed.
 */
VX_API VX_STATUS VX_Set_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                         VX_Set_Encapsulated_Callback Callback);

/**
 * Appends the next frame to an encapsulated value, whose former frames stay.
 * @copydetails VX_Set_Encapsulated_Value_From_Function
 */
VX_API VX_STATUS VX_Set_Next_Encapsulated_Value_From_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                              VX_Set_Encapsulated_Callback Callback);

/**
 * Ends an encapsulated value: writes the delimiter behind the last frame.
 * @param MsgID  message, item or file.
 * @param Tag  the attribute whose frames are written.
 * @retval VX_INVALID_TAG  no frame was stored, with CREATE_OFFSET_TABLE on; or the object does not take the
 *     attribute.
 * @retval VX_INCOMPATIBLE_VR  its VR is neither OB nor OW.
 * @retval VX_INVALID_TRANSFER_SYNTAX  the object's syntax is not set, or not an encapsulated one.
 * @retval VX_TEMP_FILE_ERROR  the value could not be written to its temporary file.
 * @return Otherwise the status with which the callback that holds the value failed.
 */
VX_API VX_STATUS VX_Close_Encapsulated_Value(int32_t MsgID, uint32_t Tag);

/**
 * Delivers the first frame of an encapsulated value, through the object's decompressor if it has one.
 * Without an offset table and without a decompressor all data comes in one run.
 * @param MsgID  message, item or file that tells Rows, Columns, Bits Allocated and Samples per Pixel.
 * @param Tag  attribute of a numeric or bulk VR, but not UN.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  takes the pieces.
 * @retval VX_NORMAL_COMPLETION  this was the last frame.
 * @retval VX_END_OF_FRAME  the frame was delivered, and more frames follow.
 * @retval VX_INVALID_TAG  the object has no such attribute.
 * @retval VX_INCOMPATIBLE_VR  the attribute is of another VR.
 * @retval VX_INVALID_TRANSFER_SYNTAX  the object's syntax is not set, or not an encapsulated one.
 * @retval VX_EMPTY_VALUE  there is no value, or the object does not tell how large a frame is.
 * @retval VX_NULL_VALUE  the value has no data.
 * @retval VX_ENCAPSULATED_TOO_SHORT,VX_MISSING_DELIMITER  the value is broken.
 * @retval VX_COMPRESSION_FAILURE  the decompressor failed.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the callback that holds the value failed.
 * @retval VX_TEMP_FILE_ERROR  the value could not be read from its temporary file.
 * @return Otherwise the status with which Callback ended the delivery.
 */
VX_API VX_STATUS VX_Get_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                       VX_Get_Encapsulated_Callback Callback);

/**
 * Delivers the frame behind the last delivery, or the first one if there was none.
 * @retval VX_NO_MORE_VALUES  the last frame has been delivered.
 * @copydetails VX_Get_Encapsulated_Value_To_Function
 */
VX_API VX_STATUS VX_Get_Next_Encapsulated_Value_To_Function(int32_t MsgID, uint32_t Tag, void* UserInfo,
                                                            VX_Get_Encapsulated_Callback Callback);

/**
 * Delivers one frame of Pixel Data (7FE0,0010), native or encapsulated.
 * An encapsulated frame goes through the object's decompressor if it has one. Where a value has no offset
 * table each fragment is a frame, or the decompressor finds where frames end.
 * @param MsgID  message, item or file that tells Rows, Columns, Bits Allocated and Samples per Pixel.
 * @param FrameNumber  number of the frame, from 0.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  takes the pieces.
 * @retval VX_NO_MORE_VALUES  there is no such frame, or a native value ends before its end.
 * @retval VX_INVALID_TAG  the object has no Pixel Data.
 * @retval VX_INCOMPATIBLE_VR  Pixel Data is of a text VR, UN or SQ.
 * @retval VX_EMPTY_VALUE  FrameNumber is negative; there is no value; the object does not tell how large a
 *     frame is; or a native frame of single bits does not begin at a byte.
 * @retval VX_NULL_VALUE  the value has no data.
 * @retval VX_ENCAPSULATED_TOO_SHORT,VX_MISSING_DELIMITER  the value is broken.
 * @retval VX_COMPRESSION_FAILURE  the decompressor failed.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the callback that holds the value failed.
 * @retval VX_TEMP_FILE_ERROR  the value could not be read from its temporary file.
 * @return Otherwise the status with which Callback ended the delivery.
 */
VX_API VX_STATUS VX_Get_Frame_To_Function(int32_t MsgID, int32_t FrameNumber, void* UserInfo,
                                          VX_Get_Encapsulated_Callback Callback);

/**
 * Delivers the offset table of encapsulated Pixel Data in one piece.
 * The piece is the number of bytes of all entries as a 32-bit number, then the entries, 32 bits each, all
 * little endian.
 * @param MsgID  message, item or file.
 * @param UserInfo  handed to Callback; may be null.
 * @param Callback  takes the table.
 * @retval VX_INVALID_TAG  the object has no Pixel Data.
 * @retval VX_INCOMPATIBLE_VR  Pixel Data is of a text VR, UN or SQ.
 * @retval VX_EMPTY_VALUE  there is no table, or the object's syntax is not an encapsulated one.
 * @retval VX_ENCAPSULATED_TOO_SHORT,VX_MISSING_DELIMITER  the value is broken.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the callback that holds the value failed.
 * @retval VX_TEMP_FILE_ERROR  the value could not be read from its temporary file.
 * @return Otherwise the status with which Callback refused.
 */
VX_API VX_STATUS VX_Get_Offset_Table_To_Function(int32_t MsgID, void* UserInfo,
                                                 VX_Get_Encapsulated_Callback Callback);

/* ---- Compression --------------------------------------------------------------------------------------- */

/**
 * Gives an object the functions through which frames of its Pixel Data are written and read.
 * They stay until others take their place. The items of a message that hold encapsulated pixels get them too.
 * @param MsgID  message, item or file; its transfer syntax must be an encapsulated one.
 * @param Compressor  used where frames are written; null for none.
 * @param Decompressor  used where frames are read; null for none.
 * @retval VX_INVALID_TRANSFER_SYNTAX  the object's syntax is not set, or not an encapsulated one.
 */
VX_API VX_STATUS VX_Register_Compression_Callbacks(int32_t MsgID, VX_COMPRESSION_CALLBACK Compressor,
                                                   VX_COMPRESSION_CALLBACK Decompressor);

/**
 * Compression callback for RLE (PS3.5 annex G): 8 and 16 bits allocated, up to 4 samples, by pixel or by
 * plane; the frame comes out at the call with IsLast 1.
 * @param MsgID  the object whose image this is; its transfer syntax and its group 0028 tell how it is coded.
 * @param Context  [in,out] the codec's state; *Context is null before a frame and after its release.
 * @param DataSize  bytes of the input.
 * @param DataBuffer  the input: the frame in as many pieces as the caller likes.
 * @param OutSize  [out] bytes of the output, an even number; 0: none yet.
 * @param OutBuffer  [out] the output, the codec's own, valid until the next call.
 * @param IsFirst  1 on the first call of a frame.
 * @param IsLast  1 on the call that ends the input of the frame.
 * @param Release  not 0: frees *Context, and the other arguments do not count.
 * @retval VX_CALLBACK_CANNOT_COMPLY  the image is none that the codec takes, the data is broken, or an
 *     argument is missing, MsgID unknown or the library not initialised; the log tells more. With Release:
 *     there is nothing to free.
 * @retval VX_CANNOT_COMPLY  more data than a frame was to be compressed as RLE.
 */
VX_API VX_STATUS VX_RLE_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                   uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                   int32_t Release);

/**
 * Decompression callback for RLE; the frame comes out as soon as it is complete, an odd one with one zero
 * byte behind it.
 * @copydetails VX_RLE_Compressor
 */
VX_API VX_STATUS VX_RLE_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                     uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                     int32_t Release);

/**
 * Compression callback for JPEG, JPEG Lossless, JPEG-LS, JPEG 2000 and HTJ2K, by the transfer syntax.
 * JPEG is baseline, or extended with 8, 10 and 12 bits stored; JPEG Lossless is process 14 with selection
 * value 1. The frame comes out at the call with IsLast 1. Settings:
 * - COMPRESSION_LUM_FACTOR, COMPRESSION_CHROM_FACTOR: an entry of a JPEG table is that of ISO/IEC 10918-1
 *   annex K * factor / 32, from 1 to 255: 32 takes the tables as they are, larger is coarser.
 * - COMPRESSION_RGB_TRANSFORM_FORMAT: with "YBR_FULL_422", RGB becomes that in JPEG, with half its
 *   chrominance samples; with "YBR_FULL" it stays RGB, with all its samples.
 * - JPEG_LS_LOSSY is near-lossless with 10, or half the largest sample if that is less; a signed frame with
 *   samples that near to the ends of their range, where an error would turn the sign, is coded without loss.
 * - COMPRESSION_WHEN_J2K_USE_LOSSY: JPEG_2000 is lossy, else lossless. HTJ2K always: COMPRESSION_QUALITY.
 * - COMPRESSION_J2K_LOSSY_RATIO: bits allocated over bits written.
 * - COMPRESSION_J2K_LOSSY_QUALITY, with COMPRESSION_J2K_LOSSY_USE_QUALITY: tenths of the bits of a pixel that
 *   are written; 0 writes as little as can be.
 *
 * Bits above Bits Stored that repeat the sign are left out and come back; others make lossless codecs keep
 * all bits allocated, and lossy ones refuse. JPEG knows no sign: in a signed image the step from -1 to 0 is
 * one over the whole range, and costs as much.
 * @copydetails VX_RLE_Compressor
 */
VX_API VX_STATUS VX_Standard_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                        uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                        int32_t Release);

/**
 * Decompression callback for what VX_Standard_Compressor writes.
 * The frame comes out where its code stream ends, pixel by pixel, an odd one with one zero byte behind it;
 * YBR_FULL_422 as Y1 Y2 Cb Cr. IGNORE_JPEG_BAD_SUFFIX decides what a JPEG Lossless stream without its end is:
 * below 0 warned of, 0 refused, above 0 taken.
 * @copydetails VX_RLE_Compressor
 */
VX_API VX_STATUS VX_Standard_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                          uint32_t* OutSize, void** OutBuffer, int32_t IsFirst,
                                          int32_t IsLast, int32_t Release);

/**
 * Compression callback for whatever its target takes.
 * It is without the checks of VX_RLE_Compressor and VX_Standard_Compressor on photometric interpretations:
 * palettes and YBR_FULL without loss, YBR_FULL also as JPEG, colour of 16 bits as JPEG Lossless, JPEG-LS and
 * JPEG 2000, 1 and 32 bits allocated as RLE, 32 with up to 24 stored as HTJ2K without loss. Colour keeps its
 * label where the codec does not transform it. JPEG XL: without loss, and JPEG_XL with the loss of
 * COMPRESSION_QUALITY unless that is 100 or the image is signed; signed samples stand in its stream as two's
 * complement of Bits Stored bits. JPEG_XL_RECOMPRESSION is refused: VX_Duplicate_Message makes it of JPEG.
 * For programs that compress images of others.
 * @copydetails VX_RLE_Compressor
 */
VX_API VX_STATUS VX_General_Compressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                       uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                       int32_t Release);

/**
 * Decompression callback for whatever the codecs can.
 * It is without the checks of VX_RLE_Decompressor and VX_Standard_Decompressor: also JPEG with spectral
 * selection and progressive JPEG, JPEG Lossless with all predictors under its older syntax, every photometric
 * interpretation, RLE with 1 and 32 bits allocated, JPEG XL: JPEG_XL_RECOMPRESSION as the JPEG stream that it
 * was made from. Colour comes out as the image is labelled, but YBR_ICT, YBR_RCT and XYB as RGB. Where the
 * object has Total Pixel Matrix Columns, a stream that is smaller than the frame fills it from its upper
 * left, its last row and column repeated. For programs that show or convert images of others.
 * @copydetails VX_RLE_Compressor
 */
VX_API VX_STATUS VX_General_Decompressor(int32_t MsgID, void** Context, uint32_t DataSize, void* DataBuffer,
                                         uint32_t* OutSize, void** OutBuffer, int32_t IsFirst, int32_t IsLast,
                                         int32_t Release);

/**
 * Makes a deep copy of an object, its Pixel Data in another transfer syntax or the same.
 * Frames go through the decompressor of the source and through Compressor, one at a time. Without Compressor
 * and with the same syntax the value is copied as it is. Pixel Data of items becomes native, but for
 * DUPLICATE_ENCAPSULATED_ICON. With UPDATE_GROUP_0028_ON_DUPLICATE the attributes that tell of compression
 * are brought up to date. Where the source has JPEG of 8 bits and the copy JPEG_XL_RECOMPRESSION, or the
 * other way round, and both functions are the general ones, each frame keeps its JPEG stream, byte by byte,
 * and the attributes stay; a stream that can not be kept, or that the copy's syntax does not take, is
 * VX_COMPRESSION_FAILURE.
 * @param SourceID  message, item or file.
 * @param DestID  [out] the copy, an object of the same kind, which the caller frees; after a failure what was
 *     copied so far, for the caller to free too, or -1.
 * @param TransferSyntax  syntax of the copy.
 * @param Compressor  writes the copy's frames where TransferSyntax is an encapsulated one, and becomes the
 *     copy's own; else null.
 * @param Decompressor  becomes the copy's own, and is not called here; may be null.
 * @retval VX_INVALID_MESSAGE_ID  also a directory or a structured report.
 * @retval VX_INVALID_TRANSFER_SYNTAX  no such code, or the configuration gives it no UID.
 * @retval VX_DECOMPRESSOR_REQUIRED  frames must be decompressed, and the source has no decompressor.
 * @retval VX_COMPRESSOR_REQUIRED  frames must be compressed, and Compressor is null.
 * @retval VX_COMPRESSION_FAILURE  the source's decompressor failed.
 * @retval VX_CANNOT_COMPLY  Pixel Data is less than the frames that the image has.
 * @retval VX_CALLBACK_CANNOT_COMPLY  a value callback failed, or the image does not tell what a frame is.
 * @retval VX_ENCAPSULATED_TOO_SHORT,VX_MISSING_DELIMITER  the source's value is broken.
 * @retval VX_INVALID_VALUE_FOR_VR  more than 128 sequences within each other.
 * @retval VX_TEMP_FILE_ERROR  a value could not be read from its temporary file or written to one.
 * @return Otherwise the status with which Compressor failed.
 */
VX_API VX_STATUS VX_Duplicate_Message(int32_t SourceID, int32_t* DestID, VX_TRANSFER_SYNTAX TransferSyntax,
                                      VX_COMPRESSION_CALLBACK Compressor,
                                      VX_COMPRESSION_CALLBACK Decompressor);

/**
 * Releases what the codecs keep for the calling thread; a thread that used them calls it before it ends.
 * @return VX_NORMAL_COMPLETION
 */
VX_API VX_STATUS VX_Thread_Release(void);

#ifdef __cplusplus
}
#endif

#endif
