// Objects, their metadata and their bulk data (PS3.18 section 10.4).
#pragma once

#include "web_answers.h"

namespace vexal {

// Studies, series and instances as DICOM files.
HttpResponse retrieve_objects(const WebContext& context);
// The same without bulk data, which is named by BulkDataURI.
HttpResponse retrieve_metadata(const WebContext& context);
HttpResponse retrieve_bulk(const WebContext& context);

}  // namespace vexal
