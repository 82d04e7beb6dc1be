#include "frame/status.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>

namespace vx {
namespace {

struct StatusRow {
  VX_STATUS status;
  const char* text;
};

// Ascending, so that a lookup may bisect.
constexpr StatusRow kStatusRows[] = {
    {1, "Normal Completion"},
    {4000, "Application was already registered"},
    {4001, "Association was aborted"},
    {4002, "Association was closed by peer"},
    {4003, "Association negotiation failed"},
    {4004, "Attribute has value[s] - VR cannot be changed to SQ"},
    {4005, "Value too large for buffer"},
    {4006, "Callback cannot comply"},
    {4007, "Callback provided negative data size"},
    {4008, "Callback provided uneven data size"},
    {4009, "Invalid parameter from callback"},
    {4010, "Not allowed if callback is registered"},
    {4011, "Callback cannot comply with request"},
    {4012, "Cannot access VexalKit services file"},
    {4013, "Invalid configuration parameter"},
    {4014, "Required Configuration Info Missing"},
    {4015, "Problem with Data Dictionary File"},
    {4016, "Message contains validation errors"},
    {4017, "Attribute has no value yet"},
    {4018, "End of data"},
    {4019, "Extended negotiation information unavailable"},
    {4020, "Private Block Found"},
    {4021, "Function not available on this machine"},
    {4022, "Tag's VR incompatible with function call"},
    {4023, "Tag's value incompatible with function call"},
    {4024, "Application ID parameter is invalid"},
    {4025, "Application Title parameter is invalid"},
    {4026, "Association ID parameter is invalid"},
    {4027, "Invalid characters in value for this VR"},
    {4028, "Invalid Command Parameter"},
    {4029, "Invalid data type parameter"},
    {4030, "End of list has been reached"},
    {4031, "Private group not an odd number"},
    {4032, "Host name parameter invalid"},
    {4033, "Item ID parameter invalid"},
    {4034, "Application Title not 1-16 bytes long"},
    {4035, "Invalid VR length in stream data"},
    {4037, "Message ID parameter invalid"},
    {4038, "Network partner sent an invalid message"},
    {4039, "Invalid enum parameter value"},
    {4040, "Port number parameter not positive or is not a valid listen port"},
    {4041, "Invalid Private Group Code"},
    {4042, "Invalid Service List Name parameter"},
    {4043, "Tag parameter invalid"},
    {4044, "Invalid transfer syntax code"},
    {4045, "Invalid value for this tag's VR"},
    {4046, "Invalid value number for the attribute"},
    {4047, "VR parameter is invalid"},
    {4048, "No messages have been logged"},
    {4049, "The message object is empty"},
    {4050, "Message validates"},
    {4051, "Required parameter missing in vexal.ini"},
    {4052, "Problem with message information file"},
    {4053, "Value is not positive"},
    {4054, "Network unexpectedly shutdown"},
    {4055, "No applications registered"},
    {4056, "Attribute has no callback registered"},
    {4057, "Warning: no function specified for Type 1C or Type 2C attribute"},
    {4058, "No file system available to perform requested function"},
    {4059, "No negotiation information registered for the service"},
    {4061, "VEXAL.INI file cannot be located"},
    {4062, "Message has no more attributes"},
    {4063, "Attribute has no more values"},
    {4064, "Could not access VexalKit Profile"},
    {4065, "No association request to accept/reject"},
    {4066, "Invalid attribute for service"},
    {4067, "Private block not found"},
    {4068, "Value not an enumerated value"},
    {4069, "Value not one of defined terms"},
    {4070, "Null parameter"},
    {4071, "Attribute's value is NULL"},
    {4072, "Protocol violation: call made out of sequence"},
    {4073, "Required attribute not in message"},
    {4074, "Missing required dataset for this message command"},
    {4075, "Required attribute has no value"},
    {4076, "Function call invalid now"},
    {4077, "System Call was interrupted"},
    {4078, "System Error"},
    {4079, "Tag Already Exists"},
    {4080, "Temporary file I/O error"},
    {4081, "Timed out waiting on network partner"},
    {4082, "Attribute must have more values"},
    {4083, "No room for more private blocks"},
    {4084, "Too many values for this attribute"},
    {4085, "Unable to check condition"},
    {4086, "Message service unacceptable for this association"},
    {4087, "Unexpected end of stream data"},
    {4088, "Item is not configured"},
    {4089, "Service is not configured"},
    {4090, "Type 1[C] value may not be NULL"},
    {4091, "Attribute must not be used under current condition"},
    {4092, "Out of Range: Numeric precision would be lost."},
    {4093, "Stream value length too large"},
    {4094, "Value Representation is already valid"},
    {4095, "VX_Library_Initialization has already been called"},
    {4096, "VX_Library_Initialization not called yet"},
    {4097, "Directory Record Offset doesn't match a Directory Record"},
    {4098, "File ID parameter invalid"},
    {4099, "DICOMDIR ID parameter invalid"},
    {4100, "Entity ID parameter invalid"},
    {4101, "MRDR ID parameter invalid"},
    {4102, "Function unable to get item ID from DICOMDIR object"},
    {4103, "Invalid number for padding, must be even"},
    {4104, "Lower level directory entity already exists"},
    {4105, "Invalid lower-level directory record type"},
    {4106, "Invalid directory record type"},
    {4107, "Unknown host attempted to connect"},
    {4108, "Timed out waiting on network partner in middle of a transfer"},
    {4109, "SOP class UID parameter is invalid"},
    {4110, "Invalid version of utilities used to generate configuration functions"},
    {4111, "A tag was encoded in the stream not in ascending order"},
    {4112, "Failed to connect to remote host"},
    {4113, "Unable to resolve host name to ip address"},
    {4114, "Invalid DICOM file: did not contain DICM in prefix"},
    {4115, "Connection aborted before association negotiation was completed"},
    {4116, "ID does not represent an SR object"},
    {4117, "Unable to retrieve ID of SR object"},
    {4118, "Duplicate Name"},
    {4119, "Unknown Error"},
    {4120, "Empty List Supplied"},
    {4121, "Missing Name"},
    {4122, "Invalid Service Name Specified"},
    {4123, "Service Name in use"},
    {4124, "Invalid Syntax Name Specified"},
    {4125, "Syntax Name in use"},
    {4126, "Unknown Error"},
    {4127, "Unknown Error"},
    {4128, "Expected Delimiter"},
    {4129, "There was a problem with the compressor/decompressor"},
    {4130, "Found End of Frame"},
    {4131, "Message must be read to the end before issueing a new read"},
    {4132, "A compression function must be specified for the destination message."},
    {4133, "A decompression function must be specified for the source message."},
    {4134, "Decompressed data is available."},
    {4135, "There was a problem using ZLIB.  Check log file"},
    {4136, "The presentation context of the most recent message does not belong to a Meta SOP"},
    {4137, "Trying to set encapsulated pixel data (7FE0,0010) to a non-encapsulated message"},
    {4139,
     "The maximum number of operations invoked or performed that was negotiated would be exceeded with this "
     "message."},
    {4140, "Unknown Error"},
    {4142, "Invalid VR detected in stream."},
    {4143, "Requested function is not supported"},
};

constexpr bool before(const StatusRow& a, const StatusRow& b) {
  return a.status < b.status;
}
static_assert(std::is_sorted(std::begin(kStatusRows), std::end(kStatusRows), before));

struct ErrorRow {
  int error;
  const char* text;
};

constexpr ErrorRow kErrorRows[] = {
    {0, "no error"},
    {EINVAL, "Invalid argument"},
    {EWOULDBLOCK, "Resource temporarily unavailable.  EWOULDBLOCK"},
    {EINPROGRESS, "Operation now in progress.  EINPROGRESS"},
    {EALREADY, "Operation already in progress"},
    {ENOTSOCK, "Socket operation on non-socket"},
    {EOPNOTSUPP, "Operation not supported on socket"},
    {EPFNOSUPPORT, "Protocol family not supported"},
    {EAFNOSUPPORT, "Address family not supported by protocol family"},
    {EADDRINUSE, "Address already in use"},
    {EADDRNOTAVAIL, "Can't assign requested address"},
    {ENETDOWN, "Network is down"},
    {ENETUNREACH, "Network is unreachable"},
    {ENETRESET, "Network dropped connection on reset"},
    {ECONNABORTED, "Software caused connection abort"},
    {ECONNRESET, "Connection reset by peer"},
    {ENOBUFS, "No buffer space available"},
    {EISCONN, "Socket is already connected"},
    {ENOTCONN, "Socket is not connected"},
    {ESHUTDOWN, "Can't send after socket shutdown"},
    {ETIMEDOUT, "Connection timed out"},
    {ECONNREFUSED, "Connection refused"},
};

}  // namespace

const char* status_text(VX_STATUS status) {
  const auto* row =
      std::lower_bound(std::begin(kStatusRows), std::end(kStatusRows), StatusRow{status, nullptr}, before);
  return row != std::end(kStatusRows) && row->status == status ? row->text : "Unknown Error";
}

const char* system_error_text(int error) {
  for (const ErrorRow& row : kErrorRows) {
    if (row.error == error) return row.text;
  }
  // Several, so that one format may show a few errors.
  constexpr unsigned kBuffers = 4;
  thread_local char buffers[kBuffers][24];
  thread_local unsigned next = 0;
  char* buffer = buffers[next++ % kBuffers];
  std::snprintf(buffer, sizeof buffers[0], "error #%d", error);
  return buffer;
}

}  // namespace vx
