/// What libOxuTool exports carries OXU_EXPORT. Everything else is built with hidden visibility.
#ifndef OXU_EXPORT_H
#define OXU_EXPORT_H

#define OXU_EXPORT __attribute__((visibility("default")))

#endif
