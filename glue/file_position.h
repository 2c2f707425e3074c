/*
 * How far this process has come in a file that some part of it, such as a library, has open: what
 * a progress bar needs where nobody reports progress.
 */
#ifndef FILE_POSITION_H
#define FILE_POSITION_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The largest position of this process's descriptors of the file, in bytes; -1 where it has none
 * open. `path` is resolved as the calling thread would. Any thread.
 */
long long file_position(const char* path);

#ifdef __cplusplus
}
#endif

#endif
