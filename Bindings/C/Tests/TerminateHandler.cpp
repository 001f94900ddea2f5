// What a program in C cannot ask for itself.
#include <exception>

extern "C" int HasDefaultTerminateHandler() {
  static const std::terminate_handler sAtStart = std::get_terminate();
  return std::get_terminate() == sAtStart ? 1 : 0;
}
