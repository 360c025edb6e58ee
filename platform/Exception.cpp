#include <ole/platform/Exception.h>

namespace Qv {
namespace Exception {

RuntimeError::RuntimeError(const std::string& message, const char* file, int line)
    : std::runtime_error(message), message_(message), file_(file ? file : ""), line_(line) {}

RuntimeError::~RuntimeError() = default;

}  // namespace Exception
}  // namespace Qv
