// What all components do the same way: answer their identity and hand out texts.
#pragma once

#include "plugin/plugin_interfaces.h"

// NewText copies a text into a new[] array for the host, which frees it with delete[].
char* NewText(const char* text);

struct PluginIdentity {
  const char* name;
  const char* description;
};

// AnswerPluginID is GetPluginID for a component of that identity; vendor and version are the same
// for all.
Status AnswerPluginID(const PluginIdentity& identity, char** name, char** description,
                      char** vendor, unsigned int* versionMajor, unsigned int* versionMinor);

// ClaimDatagram is GenerateParse for a handler that looks at the length alone: datagrams shorter
// than 24 bytes, the size of a NetFlow v5 header, are left to others. *buffer_status receives the
// status with which the layer gave its bytes.
Status ClaimDatagram(IOmbrelProtData* data, DISPOSITION_CODE_T* disposition,
                     IOmbrelParseContext* context, Status* buffer_status);
