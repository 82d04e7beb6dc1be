/** @file
 * Objects without what identifies the patient. The conventions stand in vexalkit.h.
 */
#ifndef VEXALKIT_DEIDENTIFICATION_H
#define VEXALKIT_DEIDENTIFICATION_H

#include "base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------------------- */

/**
 * Options of the basic profile (PS3.15 annex E), to be added. What an option cleans, and no human looks at,
 * is kept where it can be told to be harmless (a value that the standard lists, a code of a public scheme)
 * and replaced by a neutral text otherwise.
 */
enum {
  VX_RETAIN_SAFE_PRIVATE = 0x1, /* those of PS3.15 section E.3.10, and those that (0008,0300) calls safe */
  VX_RETAIN_UIDS = 0x2,
  VX_RETAIN_DEVICE_IDENTITY = 0x4,
  VX_RETAIN_INSTITUTION_IDENTITY = 0x8,
  VX_RETAIN_PATIENT_CHARACTERISTICS = 0x10,
  VX_RETAIN_FULL_DATES = 0x20,
  VX_RETAIN_MODIFIED_DATES = 0x40, /* moved by the same number of days for all objects of a patient */
  VX_CLEAN_DESCRIPTORS = 0x80,
  VX_CLEAN_STRUCTURED_CONTENT = 0x100,
  VX_CLEAN_GRAPHICS = 0x200,
  /* The caller has taken out of the pixels what identifies: that is told in the object. */
  VX_CLEAN_PIXEL_DATA = 0x400,
  /* An encapsulated document is replaced by a dummy; it is refused otherwise. */
  VX_REPLACE_DOCUMENTS = 0x1000,
  /* Classes without a template are taken too: what their attributes have to be is not known then, so that a
     dummy stands wherever the profile leaves the choice. */
  VX_ANY_CLASS = 0x2000
};

/**
 * Is told of each change, before it is made.
 * @param ObjectID  the message, file or item that holds the attribute, which may be read.
 * @param Tag  the attribute.
 * @param Path  where it lies, as "0040A730[0].0040A160"; items count from 0. Valid during the call.
 * @param Action  'X' removed, 'Z' left without a value, 'D' a dummy value, 'U' another UID, 'C' cleaned.
 * @param UserInfo  as given.
 * @return VX_NORMAL_COMPLETION; anything else ends the work.
 */
typedef VX_STATUS (*VX_DEIDENTIFY_FUNCTION)(int32_t ObjectID, uint32_t Tag, const char* Path, char Action,
                                            void* UserInfo);

/** How to de-identify. May be used for any number of objects, by several threads at once. */
typedef struct VX_DEIDENTIFICATION {
  uint32_t Options; /* VX_RETAIN_SAFE_PRIVATE and so on, added */
  int32_t
      DateShift; /* days by which dates move; 0: what follows from secret and patient, 1 to 3652 days back */
  const void* Secret;            /* the caller's; who has it can tell which UID became which */
  uint32_t SecretSize;           /* bytes of it, at least 16 */
  VX_DEIDENTIFY_FUNCTION Report; /* null: nobody wants to know */
  void* UserInfo;                /* for Report */
} VX_DEIDENTIFICATION;

/* ---- De-identification --------------------------------------------------------------------------------- */

/**
 * Takes out of an object, with all items below it, what identifies the patient (PS3.15 annex E).
 * What becomes of an attribute is what table E.1-1 there says; the object's template tells whether the
 * attribute may be missing or empty at its place. Names and dates that no row names go too, as do private
 * attributes, group lengths, attributes that the data dictionary does not know, values in other letters than
 * those of their VR, what the meta group tells of the sender, and the preamble. Other texts that hold a name
 * of a person or institution, an ID, address or number that goes become neutral. The same UID and the same
 * patient ID become the same wherever the secret is the same. (0012,0062), (0012,0063), (0012,0064) and
 * (0028,0303) tell of it, with VX_CLEAN_PIXEL_DATA (0028,0301) too. Nothing is done to Pixel Data.
 *
 * After a failure the object is partly de-identified and should be freed, unless the failure is one of the
 * first four.
 * @param MsgID  message or file. Its SOP class, or its service and command if it has these, chooses the
 * template.
 * @param How  options and secret.
 * @retval VX_VALUE_OUT_OF_RANGE  the secret is too short, or full and modified dates are asked for at once.
 * @retval VX_INVALID_MESSAGE_ID  also of an item or a directory.
 * @retval VX_INVALID_SOP_CLASS_UID  there is no template for the object's class.
 * @retval VX_VALUE_NOT_ALLOWED  the object holds an encapsulated document.
 * @retval VX_INVALID_VALUE_FOR_VR  sequences are nested beyond 128 levels.
 * @retval VX_CALLBACK_CANNOT_COMPLY  Report did not answer with VX_NORMAL_COMPLETION.
 */
VX_API VX_STATUS VX_Deidentify_Message(int32_t MsgID, const VX_DEIDENTIFICATION* How);

/**
 * Gives what stands for a UID in objects that are de-identified with a secret.
 * @param How  of which the secret and VX_RETAIN_UIDS count.
 * @param Uid  the UID; those that DICOM itself registers stay as they are.
 * @param NewUid  [out] 65 bytes.
 * @retval VX_VALUE_OUT_OF_RANGE  the secret is too short, or Uid is longer than 64 characters.
 */
VX_API VX_STATUS VX_Deidentified_UID(const VX_DEIDENTIFICATION* How, const char* Uid, char* NewUid);

#ifdef __cplusplus
}
#endif

#endif
