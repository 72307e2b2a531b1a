#pragma once

#include <windows.h>

// Base of the security descriptors the program gives to the keys, files and kernel objects it
// creates. On platforms without object security (not NT) every operation does nothing and the
// attributes carry a null descriptor, meaning the system's default security.
class Security {
 public:
  Security();
  virtual ~Security() = 0;
  Security(const Security&) = delete;
  Security& operator=(const Security&) = delete;

  // Attributes for creating an object: the descriptor (null until a derived class sets it) and
  // inheritable handles.
  virtual SECURITY_ATTRIBUTES* getSecurityAttributes();
  // Apply the descriptor to an existing kernel object / the DACL to a registry key. Throw
  // Win32Exception on failure.
  virtual void doApply(HANDLE kernelObject) = 0;
  virtual void doApply(HKEY registryKey) = 0;

 protected:
  bool isSupported() const { return supported_; }
  // Points the attributes at the descriptor a derived class has built.
  void setDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    attributes_.lpSecurityDescriptor = descriptor;
  }

 private:
  SECURITY_ATTRIBUTES attributes_;
  bool supported_;
};
