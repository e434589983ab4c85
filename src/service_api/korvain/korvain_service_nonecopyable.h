// Base of interfaces whose implementations have an identity and are never copied.
#ifndef KORVAIN_SERVICE_NONECOPYABLE_H_
#define KORVAIN_SERVICE_NONECOPYABLE_H_

#pragma GCC visibility push(default)  // also where a project hides its own symbols

namespace KorvainService {

class NoneCopyable {
 public:
  virtual ~NoneCopyable() = default;

 protected:
  NoneCopyable() = default;

 private:
  NoneCopyable(const NoneCopyable&) = delete;
  NoneCopyable& operator=(const NoneCopyable&) = delete;
};

}  // namespace KorvainService

#pragma GCC visibility pop

#endif  // KORVAIN_SERVICE_NONECOPYABLE_H_
