#include "jni/sealing_frame.hpp"

#include <cstdio>

#include "jni/aes_key.hpp"

namespace kelo::jni {

void Progress::say(const char* text) const {
  if (verbose_ == 1) {
    std::puts(text);
    std::fflush(stdout);
  }
}

void Progress::say_int(const char* format, int value) const {
  if (verbose_ == 1) {
    std::printf(format, value);
    std::fflush(stdout);
  }
}

void error_line(const char* text) {
  std::puts(text);
  std::fflush(stdout);
}

bool clear_exception(JNIEnv* env) {
  if (!env->ExceptionCheck()) return false;
  env->ExceptionClear();
  return true;
}

bool SealingFrame::open(const ResultClass& rc) {
  if (!find_result_class(rc)) return false;
  return make_cipher();
}

bool SealingFrame::find_result_class(const ResultClass& rc) {
  progress_.say("Getting kelo results class");
  resultClass_ = env_->FindClass(rc.className);
  if (resultClass_ == nullptr) {
    clear_exception(env_);
    error_line(rc.notFoundMessage);
    return false;
  }
  const jmethodID init = env_->GetMethodID(resultClass_, "<init>", "()V");
  progress_.say(rc.generatingMessage);
  if (init != nullptr) result_ = env_->NewObject(resultClass_, init);
  // A class without a usable no-argument constructor cannot give a result
  // object; report it like any other set-up failure instead of passing a
  // null object on.
  if (result_ == nullptr) {
    clear_exception(env_);
    error_line("*** ERROR: Could not generated KELOecgResults-Object.");
    return false;
  }
  progress_.say(rc.fieldIdsMessage);
  fields_.clear();
  for (const FieldSpec& f : rc.fields) {
    fields_.push_back(env_->GetFieldID(resultClass_, f.name, f.signature));
    clear_exception(env_);  // a missing field is skipped when results are set
  }
  return true;
}

bool SealingFrame::make_cipher() {
  const jstring algorithm = env_->NewStringUTF("AES");

  progress_.say("********* Encryption of Results ***************");
  progress_.say("generating pub key array....");
  const std::array<int8_t, 16> keyBytes = assemble_aes_key();
  const jbyteArray keyArray = env_->NewByteArray(16);
  env_->SetByteArrayRegion(keyArray, 0, 16, keyBytes.data());

  progress_.say("looking for needed java classes....");
  const jclass keySpecClass = env_->FindClass("javax/crypto/spec/SecretKeySpec");
  clear_exception(env_);
  const jclass cipherClass = env_->FindClass("javax/crypto/Cipher");
  clear_exception(env_);
  sealedObjectClass_ = env_->FindClass("javax/crypto/SealedObject");
  clear_exception(env_);
  if (keySpecClass == nullptr) {
    error_line("Error FindClass");
    return false;
  }
  if (sealedObjectClass_ == nullptr) {
    error_line("Error finding class SealedObject");
    return false;
  }

  progress_.say("getting addresses of methods...");
  auto method = [&](jclass c, const char* name, const char* sig, bool isStatic) -> jmethodID {
    if (c == nullptr) return nullptr;
    const jmethodID id = isStatic ? env_->GetStaticMethodID(c, name, sig) : env_->GetMethodID(c, name, sig);
    clear_exception(env_);
    return id;
  };
  const jmethodID keySpecInit = method(keySpecClass, "<init>", "([BLjava/lang/String;)V", false);
  const jmethodID getInstance =
      method(cipherClass, "getInstance", "(Ljava/lang/String;)Ljavax/crypto/Cipher;", true);
  const jmethodID cipherInit = method(cipherClass, "init", "(ILjava/security/Key;)V", false);
  const jmethodID doFinal = method(cipherClass, "doFinal", "([B)[B", false);  // looked up, never called
  sealedObjectInit_ = method(sealedObjectClass_, "<init>",
                             "(Ljava/io/Serializable;Ljavax/crypto/Cipher;)V", false);
  if (keySpecInit == nullptr) error_line("*** Error GetMethodID");
  if (getInstance == nullptr) error_line("*** Error getting method cipher.getInstance");
  if (cipherInit == nullptr) error_line("*** Error getting method Cipher.Init");
  if (doFinal == nullptr) error_line("*** Error getting method Cipher.doFinal");
  if (sealedObjectInit_ == nullptr) error_line("*** Error getting contructor of SealedObject");

  progress_.say("generating x509EncKeySpecObject...");
  jobject key = nullptr;
  if (keySpecInit != nullptr) key = env_->NewObject(keySpecClass, keySpecInit, keyArray, algorithm);
  clear_exception(env_);

  progress_.say("getting Cipther Object...");
  if (getInstance != nullptr) cipher_ = env_->CallStaticObjectMethod(cipherClass, getInstance, algorithm);
  clear_exception(env_);
  if (cipher_ == nullptr) {
    error_line("*** ERROR generating the Cipher Object");
    return false;
  }

  progress_.say("init Cipher...");
  if (cipherInit != nullptr) env_->CallVoidMethod(cipher_, cipherInit, 1 /* ENCRYPT_MODE */, key);
  // A cipher that refuses the key cannot seal anything: a set-up failure.
  if (cipherInit == nullptr || key == nullptr || clear_exception(env_)) {
    error_line("*** ERROR generating the Cipher Object");
    return false;
  }
  return true;
}

void SealingFrame::set_int(std::size_t i, jint value) const {
  if (const jfieldID f = field(i)) env_->SetIntField(result_, f, value);
}

void SealingFrame::set_double(std::size_t i, jdouble value) const {
  if (const jfieldID f = field(i)) env_->SetDoubleField(result_, f, value);
}

void SealingFrame::set_int_array(std::size_t i, const std::vector<jint>& values) const {
  const auto length = static_cast<jsize>(values.size());
  const jintArray array = env_->NewIntArray(length);
  if (array == nullptr) {  // out of Java memory: leave the field unset
    clear_exception(env_);
    return;
  }
  env_->SetIntArrayRegion(array, 0, length, values.data());
  if (const jfieldID f = field(i)) env_->SetObjectField(result_, f, array);
  env_->DeleteLocalRef(array);
}

jobject SealingFrame::seal() const {
  progress_.say("Generate sealed object...");
  jobject sealed = nullptr;
  if (sealedObjectInit_ != nullptr)
    sealed = env_->NewObject(sealedObjectClass_, sealedObjectInit_, result_, cipher_);
  if (clear_exception(env_) || sealed == nullptr) {
    error_line("*** ERROR: Could not seal the result object.");
    return nullptr;
  }
  progress_.say("Encryption finished!");
  return sealed;
}

}  // namespace kelo::jni
