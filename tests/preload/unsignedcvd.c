/* Lets libclamav take the unsigned databases of tests/support/make_signatures.py.
 *
 * Loaded by LD_PRELOAD in front of libclamav. A .cvd file with the marker as the line behind its head holds
 * the texts of signature files, each after a line with its extension in brackets. They are written to a
 * directory of their own, which the real cl_load then loads. The last line has a sum of all others. Every
 * other file goes to it as it is, so that a corrupt database is refused as ever.
 */

#define _GNU_SOURCE

#include <clamav.h>

#include <dirent.h>
#include <dlfcn.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* Of a signed file as well. */
static const long head_size = 512;
static const char marker[] = "# unsigned signatures for tests\n";

typedef cl_error_t (*load_function)(const char*, struct cl_engine*, unsigned int*, unsigned int);
typedef cl_error_t (*verify_function)(const char*);

/* Whether the last line, "# " and the sum in 16 digits, belongs to what stands before it (FNV-1a). */
static int has_right_sum(FILE* database)
{
    enum
    {
        last_line = 19
    };
    uint64_t sum = 0xcbf29ce484222325;
    uint64_t written = 0;
    if (fseek(database, -last_line, SEEK_END) != 0) {
        return 0;
    }
    const long end = ftell(database);
    rewind(database);
    for (long position = 0; position < end; ++position) {
        sum = (sum ^ (uint64_t)fgetc(database)) * 0x100000001b3;
    }
    return fscanf(database, "# %16" SCNx64 "\n", &written) == 1 && written == sum;
}

static int is_unsigned(FILE* database)
{
    char first[sizeof marker];
    return has_right_sum(database) && fseek(database, head_size, SEEK_SET) == 0 &&
           fgets(first, sizeof first, database) != NULL && strcmp(first, marker) == 0;
}

static FILE* open_unsigned(const char* path)
{
    FILE* database = fopen(path, "re");
    if (database != NULL && !is_unsigned(database)) {
        fclose(database);
        return NULL;
    }
    return database;
}

/* Returns 0 when every line of `database` went to a file in `directory`. */
static int write_sections(FILE* database, const char* directory)
{
    FILE* section = NULL;
    char* line = NULL;
    size_t capacity = 0;
    int result = 0;
    while (result == 0 && getline(&line, &capacity, database) > 0) {
        char extension[8];
        if (sscanf(line, "[%7[a-z]]", extension) == 1) {
            char path[256];
            snprintf(path, sizeof path, "%s/test.%s", directory, extension);
            if (section != NULL) {
                fclose(section);
            }
            section = fopen(path, "we");
            result = section == NULL;
        } else {
            result = section == NULL || fputs(line, section) == EOF;
        }
    }
    if (section != NULL && fclose(section) != 0) {
        result = 1;
    }
    free(line);
    return result;
}

static void remove_directory(const char* path)
{
    DIR* directory = opendir(path);
    if (directory != NULL) {
        const struct dirent* entry;
        while ((entry = readdir(directory)) != NULL) {
            if (entry->d_name[0] != '.') {
                unlinkat(dirfd(directory), entry->d_name, 0);
            }
        }
        closedir(directory);
    }
    rmdir(path);
}

cl_error_t cl_load(const char* path, struct cl_engine* engine, unsigned int* signo, unsigned int dboptions)
{
    load_function real_load;
    /* The way that POSIX gives for turning the result into a function. */
    *(void**)&real_load = dlsym(RTLD_NEXT, "cl_load");

    FILE* database = open_unsigned(path);
    if (database == NULL) {
        return real_load(path, engine, signo, dboptions);
    }
    char directory[] = "/tmp/unsignedcvd-XXXXXX";
    cl_error_t result = CL_ETMPDIR;
    if (mkdtemp(directory) != NULL) {
        result = CL_EWRITE;
        if (write_sections(database, directory) == 0) {
            /* As a signed one counts: names of others get a suffix. */
            result = real_load(directory, engine, signo, dboptions | CL_DB_OFFICIAL);
        }
        remove_directory(directory);
    }
    fclose(database);
    return result;
}

cl_error_t cl_cvdverify(const char* path)
{
    verify_function real_verify;
    *(void**)&real_verify = dlsym(RTLD_NEXT, "cl_cvdverify");

    FILE* database = open_unsigned(path);
    if (database == NULL) {
        return real_verify(path);
    }
    fclose(database);
    return CL_SUCCESS;
}
