#include "ordered_reader.h"

#include <mutex>

#include "base/session.h"

namespace vexal {

VX_STATUS OrderedReader::open(DicomFile& file, const std::string& path, std::string& out_of_order) {
  {
    const std::shared_lock strict(mutex_);
    const LogLines said;
    const VX_STATUS status = file.open(path, {});
    if (status != VX_OUT_OF_ORDER_TAG) {
      said.show();
      return status;
    }
    const char* where = said.behind("Tags not in ascending order: ");
    out_of_order = where != nullptr ? where : file.problem();
  }
  const std::unique_lock alone(mutex_);
  VX_Set_Bool_Config_Value(VX_CFG_ALLOW_OUT_OF_ORDER_TAGS, 1);
  const VX_STATUS status = file.open(path, {});
  VX_Set_Bool_Config_Value(VX_CFG_ALLOW_OUT_OF_ORDER_TAGS, 0);
  return status;
}

}  // namespace vexal
