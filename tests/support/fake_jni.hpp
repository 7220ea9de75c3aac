// A minimal Java environment in the test process, enough to call the
// bridge's native methods without a virtual machine: classes are names,
// objects keep their int and double fields and int arrays, a SealedObject
// keeps the object it seals (no cryptography). One FakeJava per thread, as
// a JNIEnv belongs to one thread.
#pragma once

#include <jni.h>

#include <cstdarg>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace kelo::test {

// Called, when set, around every fake JNI function that allocates: the
// allocation-failure tests keep these allocations out of their count.
struct FakeJavaHooks {
  static inline void (*enter)() = nullptr;
  static inline void (*leave)() = nullptr;
};

// The fields of a result object as the bridge set them.
struct JavaResult {
  std::string className;
  std::map<std::string, double> numbers;          // "error" (int) and the double fields
  std::map<std::string, std::vector<jint>> arrays;  // "rpeaks", "qualities", ...
  bool operator==(const JavaResult&) const = default;
};

class FakeJava {
 public:
  FakeJava() {
    std::memset(&table_, 0, sizeof table_);  // an unexpected JNI call crashes the test
    table_.FindClass = &FindClass;
    table_.GetMethodID = &GetMethodID;
    table_.GetStaticMethodID = &GetMethodID;
    table_.GetFieldID = &GetFieldID;
    table_.NewObjectV = &NewObjectV;
    table_.CallStaticObjectMethodV = &CallStaticObjectMethodV;
    table_.CallVoidMethodV = &CallVoidMethodV;
    table_.NewStringUTF = &NewStringUTF;
    table_.NewByteArray = &NewByteArray;
    table_.SetByteArrayRegion = &SetByteArrayRegion;
    table_.ExceptionCheck = &ExceptionCheck;
    table_.ExceptionClear = &ExceptionClear;
    table_.GetArrayLength = &GetArrayLength;
    table_.GetDoubleArrayElements = &GetDoubleArrayElements;
    table_.ReleaseDoubleArrayElements = &ReleaseDoubleArrayElements;
    table_.NewIntArray = &NewIntArray;
    table_.SetIntArrayRegion = &SetIntArrayRegion;
    table_.SetIntField = &SetIntField;
    table_.SetDoubleField = &SetDoubleField;
    table_.SetObjectField = &SetObjectField;
    table_.DeleteLocalRef = &DeleteLocalRef;
    holder_.env.functions = &table_;
    holder_.self = this;
  }
  FakeJava(const FakeJava&) = delete;
  FakeJava& operator=(const FakeJava&) = delete;

  JNIEnv* env() { return &holder_.env; }

  jdoubleArray doubles(std::span<const double> values) {
    Object& o = make("[D");
    o.doubles.assign(values.begin(), values.end());
    return reinterpret_cast<jdoubleArray>(&o);
  }

  // The sealed result object, or nothing for a null return.
  static std::optional<JavaResult> unseal(jobject sealed) {
    if (sealed == nullptr) return std::nullopt;
    const Object* r = as(sealed)->sealed;
    if (r == nullptr) return std::nullopt;
    return JavaResult{r->cls, r->numbers, r->arrays};
  }

 private:
  struct Scaffold {
    Scaffold() {
      if (FakeJavaHooks::enter != nullptr) FakeJavaHooks::enter();
    }
    ~Scaffold() {
      if (FakeJavaHooks::leave != nullptr) FakeJavaHooks::leave();
    }
  };
  struct Object {
    std::string cls;
    std::map<std::string, double> numbers;
    std::map<std::string, std::vector<jint>> arrays;
    std::vector<jint> ints;  // int and byte arrays
    std::vector<jdouble> doubles;
    const Object* sealed = nullptr;
  };
  struct Holder {
    JNIEnv env;  // first member: the bridge's env pointer leads back here
    FakeJava* self;
  };

  static FakeJava& of(JNIEnv* env) { return *reinterpret_cast<Holder*>(env)->self; }
  static Object* as(jobject o) { return reinterpret_cast<Object*>(o); }
  Object& make(std::string cls) { return objects_.emplace_back(Object{std::move(cls), {}, {}, {}, {}, nullptr}); }
  static jmethodID id(JNIEnv* env, const char* name) {
    const auto& s = *of(env).names_.insert(name).first;  // std::set: stable addresses
    return reinterpret_cast<jmethodID>(const_cast<std::string*>(&s));
  }
  static const std::string& name_of(const void* id) { return *static_cast<const std::string*>(id); }

  static jclass JNICALL FindClass(JNIEnv* env, const char* name) {
    const Scaffold scaffold;
    static const std::set<std::string> known{
        "com/kelo/kelosolver/KELOecgQrsResults", "com/kelo/kelosolver/KELOecgResults",
        "com/kelo/kelosolver/KELOecgBeats",
        "javax/crypto/spec/SecretKeySpec", "javax/crypto/Cipher", "javax/crypto/SealedObject"};
    if (known.count(name) == 0) {
      of(env).pending_ = true;  // NoClassDefFoundError
      return nullptr;
    }
    return reinterpret_cast<jclass>(&of(env).make(name));
  }
  static jmethodID JNICALL GetMethodID(JNIEnv* env, jclass, const char* name, const char*) {
    const Scaffold scaffold;
    return id(env, name);
  }
  static jfieldID JNICALL GetFieldID(JNIEnv* env, jclass, const char* name, const char*) {
    const Scaffold scaffold;
    return reinterpret_cast<jfieldID>(id(env, name));
  }
  static jobject JNICALL NewObjectV(JNIEnv* env, jclass cls, jmethodID, va_list args) {
    const Scaffold scaffold;
    Object& o = of(env).make(as(cls)->cls);
    if (o.cls == "javax/crypto/SealedObject") o.sealed = as(va_arg(args, jobject));
    return reinterpret_cast<jobject>(&o);
  }
  static jobject JNICALL CallStaticObjectMethodV(JNIEnv* env, jclass, jmethodID, va_list) {
    const Scaffold scaffold;
    return reinterpret_cast<jobject>(&of(env).make("javax/crypto/Cipher"));
  }
  static void JNICALL CallVoidMethodV(JNIEnv*, jobject, jmethodID, va_list) {}
  static jstring JNICALL NewStringUTF(JNIEnv* env, const char* text) {
    const Scaffold scaffold;
    return reinterpret_cast<jstring>(&of(env).make(std::string("String:") + text));
  }
  static jbyteArray JNICALL NewByteArray(JNIEnv* env, jsize n) {
    const Scaffold scaffold;
    Object& o = of(env).make("[B");
    o.ints.assign(static_cast<std::size_t>(n), 0);
    return reinterpret_cast<jbyteArray>(&o);
  }
  static void JNICALL SetByteArrayRegion(JNIEnv*, jbyteArray a, jsize start, jsize n, const jbyte* v) {
    for (jsize i = 0; i < n; ++i) as(a)->ints.at(static_cast<std::size_t>(start + i)) = v[i];
  }
  static jboolean JNICALL ExceptionCheck(JNIEnv* env) { return of(env).pending_ ? JNI_TRUE : JNI_FALSE; }
  static void JNICALL ExceptionClear(JNIEnv* env) { of(env).pending_ = false; }
  static jsize JNICALL GetArrayLength(JNIEnv*, jarray a) {
    return static_cast<jsize>(as(a)->doubles.size() + as(a)->ints.size());
  }
  static jdouble* JNICALL GetDoubleArrayElements(JNIEnv*, jdoubleArray a, jboolean* isCopy) {
    if (isCopy != nullptr) *isCopy = JNI_FALSE;
    return as(a)->doubles.data();
  }
  static void JNICALL ReleaseDoubleArrayElements(JNIEnv*, jdoubleArray, jdouble*, jint) {}
  static jintArray JNICALL NewIntArray(JNIEnv* env, jsize n) {
    const Scaffold scaffold;
    Object& o = of(env).make("[I");
    o.ints.assign(static_cast<std::size_t>(n), 0);
    return reinterpret_cast<jintArray>(&o);
  }
  static void JNICALL SetIntArrayRegion(JNIEnv*, jintArray a, jsize start, jsize n, const jint* v) {
    for (jsize i = 0; i < n; ++i) as(a)->ints.at(static_cast<std::size_t>(start + i)) = v[i];
  }
  static void JNICALL SetIntField(JNIEnv*, jobject o, jfieldID f, jint v) {
    const Scaffold scaffold;
    as(o)->numbers[name_of(f)] = v;
  }
  static void JNICALL SetDoubleField(JNIEnv*, jobject o, jfieldID f, jdouble v) {
    const Scaffold scaffold;
    as(o)->numbers[name_of(f)] = v;
  }
  static void JNICALL SetObjectField(JNIEnv*, jobject o, jfieldID f, jobject v) {
    const Scaffold scaffold;
    as(o)->arrays[name_of(f)] = as(v)->ints;
  }
  static void JNICALL DeleteLocalRef(JNIEnv*, jobject) {}

  JNINativeInterface_ table_;
  Holder holder_;
  std::deque<Object> objects_;
  std::set<std::string> names_;
  bool pending_ = false;
};

}  // namespace kelo::test
