// The part of a bridge call that talks to Java: finding the result class,
// building the result object and the AES cipher, and sealing the filled
// result into a javax.crypto.SealedObject.
#pragma once

#include <jni.h>

#include <cstddef>
#include <span>
#include <vector>

namespace kelo::jni {

// Progress messages print only when the verbose flag is 1; it is 0 and
// nothing sets it, so in normal operation only error lines are printed.
class Progress {
 public:
  void say(const char* text) const;
  void say_int(const char* format, int value) const;  // printf-style, no newline added

 private:
  int verbose_ = 0;
};

// Prints one error line on standard output (and flushes it, so it keeps its
// place among the host's own output).
void error_line(const char* text);

// Clears a pending Java exception; true if there was one. Set-up failures
// are reported by a printed line and a null result, so an exception raised
// by a failed lookup must not reach the caller.
bool clear_exception(JNIEnv* env);

struct FieldSpec {
  const char* name;
  const char* signature;
};

struct ResultClass {
  const char* className;         // e.g. "com/kelo/kelosolver/KELOecgQrsResults"
  const char* notFoundMessage;   // printed when the class cannot be found
  const char* generatingMessage; // verbose
  const char* fieldIdsMessage;   // verbose
  std::span<const FieldSpec> fields;
};

class SealingFrame {
 public:
  SealingFrame(JNIEnv* env, const Progress& progress) : env_(env), progress_(progress) {}

  // Everything up to an initialised encrypting cipher. Returns false on a
  // Java set-up failure, after printing its line; nothing native has been
  // allocated then and the bridge returns null.
  bool open(const ResultClass& resultClass);

  jobject result() const { return result_; }

  // Field i of the result class (in the order given to open); null when
  // the class lacks it, in which case setters skip it.
  jfieldID field(std::size_t i) const { return i < fields_.size() ? fields_[i] : nullptr; }

  void set_int(std::size_t i, jint value) const;
  void set_double(std::size_t i, jdouble value) const;
  void set_int_array(std::size_t i, const std::vector<jint>& values) const;

  // Seals the result object with the cipher; null (after an error line)
  // when Java refuses.
  jobject seal() const;

 private:
  bool find_result_class(const ResultClass& resultClass);
  bool make_cipher();

  JNIEnv* env_;
  const Progress& progress_;
  jclass resultClass_ = nullptr;
  jobject result_ = nullptr;
  std::vector<jfieldID> fields_;
  jclass sealedObjectClass_ = nullptr;
  jmethodID sealedObjectInit_ = nullptr;
  jobject cipher_ = nullptr;
};

}  // namespace kelo::jni
