// DICOM web services: the headers of this room that others may include.
#pragma once

#include "web_service.h"
