// Texture and program names. The application's names and the local ones are paired one by one; a
// name that the application never generated is passed on unchanged.
#include "coding/invariant.h"
#include "coding/server_overload/overloads.h"

namespace {

// What differs between the two kinds of names.
template <class Record, int slots>
struct NameTable {
    Record (&records)[slots];
    int& count;
    GLuint Record::*app;
    GLuint Record::*local;
    const char* limit; // the invariant's text
};

const NameTable textureNames{LocalTextureIDTable, nTextureIDs, &LocalTextureIDInfo::appTexName,
                             &LocalTextureIDInfo::localTexName, "nTextureIDs < 256"};
const NameTable programNames{LocalProgramTable, nPrograms, &LocalProgramInfo::appProgramName,
                             &LocalProgramInfo::localProgramName, "nPrograms < 64"};

// Arrays of names lie in the stream at any address.
GLuint nameAt(const GLuint* names, int i)
{
    return load<GLuint>(reinterpret_cast<const char*>(names) + i * int{sizeof(GLuint)});
}

template <Op generate, class Record, int slots>
void generateNames(const NameTable<Record, slots>& table, GLsizei n, const GLuint* names)
{
    for (int i = 0; i < n; ++i) {
        GLuint local = 0;
        callSystem<generate>(1, &local);
        Record& record = table.records[table.count++];
        record.*table.app = nameAt(names, i);
        record.*table.local = local;
        require(table.count < slots, table.limit);
    }
}

template <Op remove, class Record, int slots>
void deleteNames(const NameTable<Record, slots>& table, GLsizei n, const GLuint* names)
{
    for (int i = 0; i < n; ++i) {
        GLuint name = nameAt(names, i);
        for (Record* record = table.records; record != table.records + table.count; ++record)
            if (record->*table.app == name) {
                name = record->*table.local;
                record->*table.app = deletedName;
                break;
            }
        callSystem<remove>(1, &name);
    }
}

// The last record of a name wins.
template <class Record, int slots>
GLuint localName(const NameTable<Record, slots>& table, GLuint name)
{
    for (const Record* record = table.records + table.count; record-- != table.records;)
        if (record->*table.app == name)
            return record->*table.local;
    return name;
}

} // namespace

void _glGenTextures(GLsizei n, GLuint* textures)
{
    generateNames<Op::glGenTextures>(textureNames, n, textures);
}

void _glDeleteTextures(GLsizei n, const GLuint* textures)
{
    deleteNames<Op::glDeleteTextures>(textureNames, n, textures);
}

void _glBindTexture(GLenum target, GLuint textureName)
{
    callSystem<Op::glBindTexture>(target, localName(textureNames, textureName));
}

void _glGenProgramsARB(GLsizei n, GLuint* programs)
{
    generateNames<Op::glGenProgramsARB>(programNames, n, programs);
}

void _glDeleteProgramsARB(GLsizei n, const GLuint* programs)
{
    deleteNames<Op::glDeleteProgramsARB>(programNames, n, programs);
}

void _glBindProgramARB(GLenum target, GLuint programName)
{
    callSystem<Op::glBindProgramARB>(target, localName(programNames, programName));
}
