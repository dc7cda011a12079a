// Owners for what the library hands the native methods: the public owners
// of tev/tev.hpp, each releasing with the function that matches how the
// object was made (packs of the path checks close their file with them; for
// the descriptor checks the stream's release leaves the descriptor open).
#ifndef TEV_SRC_JNI_NATIVE_OWNERS_H
#define TEV_SRC_JNI_NATIVE_OWNERS_H

#include "tev/tev.hpp"

namespace tev::jni {

using Pack = tev::Pack;
using Offset = tev::Offset;
using Buffer = tev::Buffer;
using Voxa = tev::Voxa;
using KBytes = tev::KBytes;
using NameList = tev::NameList;

}  // namespace tev::jni

#endif  // TEV_SRC_JNI_NATIVE_OWNERS_H
