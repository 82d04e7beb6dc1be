// The XML forms of an object: the Native DICOM Model (PS3.19 section A.1) and the toolkit's own.
#pragma once

#include "model/object.h"

namespace vx {

enum class XmlForm { Own, Native };

// The statuses of VX_Message_To_XML. Nothing reaches the callback unless the whole text could be made.
VX_STATUS object_to_xml(MsgObj& object, XmlForm form, int32_t options, void* user, VX_STREAM_OUTPUT callback);
// The statuses of VX_XML_To_Message. The whole document is taken apart before the object is touched.
VX_STATUS xml_to_object(MsgObj& object, XmlForm form, void* user, VX_TEXT_INPUT callback);

}  // namespace vx
