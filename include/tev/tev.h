// libTEV.lumet.so: named data records kept in a container behind the media
// bytes of JPEG, HEIC and MP4 files, and the older Voxa sound block.
// This umbrella header declares every exported function, type and class.
// Guide: docs/api.md.
#ifndef TEV_TEV_H
#define TEV_TEV_H

#include "tev/export.h"
#include "tev/types.h"
#include "tev/stream.h"
#include "tev/diag.h"
#include "tev/crc.h"
#include "tev/container.h"
#include "tev/detect.h"
#include "tev/query.h"
#include "tev/mp4.h"
#include "tev/editor.h"
#include "tev/voxa.h"
#include "tev/sound.h"
#include "tev/copy.h"

#endif  // TEV_TEV_H
