// Frames of images: their bytes, and what people see of them (PS3.18 sections 10.4.1.1.4 and 10.4.1.1.6).
#pragma once

#include "web_answers.h"

namespace vexal {

// The frames that the target names, or all where it names none.
HttpResponse retrieve_frames(const WebContext& context);
// Pictures of frames, in JPEG or PNG.
HttpResponse retrieve_rendered(const WebContext& context);
// One small picture for a study, series, instance or frame.
HttpResponse retrieve_thumbnail(const WebContext& context);

}  // namespace vexal
