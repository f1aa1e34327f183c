#!/usr/bin/env python3
"""Prints, as CMake code, how a host compiles its own InnoDB.

    host_flags.py SOURCE BUILD GENERATED_HEADERS

SOURCE is the host's source tree, BUILD its configured folder, GENERATED_HEADERS
one more include folder. Some definitions decide the layout of structures, so all
of them are read from the flags of the innobase target: from flags.make (Makefile
generators) or build.ninja. Both folders may have moved since they were
configured.
"""

import os
import re
import shlex
import sys

FLAGS_MAKE = 'storage/innobase/CMakeFiles/innobase.dir/flags.make'
NINJA_TARGET = 'build storage/innobase/CMakeFiles/innobase.dir/'

# The first is for InnoDB's own messages. The second hardens the compiled code, and
# makes the compiler warn when it does not optimise.
NOT_OURS = ('LOG_SUBSYSTEM_TAG', '_FORTIFY_SOURCE')

# Options that a plug-in must share with the server that loads it, besides macros.
SHARED_OPTION = re.compile(r'-(fsanitize|m|stdlib)')


def refuse(text):
    sys.exit('host: ' + text)


def read_flags_make(path):
    """Returns the words of CXX_DEFINES, CXX_INCLUDES and CXX_FLAGS."""
    words = []
    with open(path, encoding='utf-8') as file:
        for line in file:
            if re.match(r'CXX_(DEFINES|INCLUDES|FLAGS) = ', line):
                words += shlex.split(line.split('=', 1)[1])
    return words


def read_ninja(path):
    """Returns the same words of the first InnoDB object in build.ninja."""
    words = []
    inside = False
    with open(path, encoding='utf-8') as file:
        for line in file:
            if line.startswith(NINJA_TARGET) and '.cc.o:' in line:
                inside = True
            elif inside and line.strip() == '':
                break
            elif inside and re.match(r'\s+(DEFINES|INCLUDES|FLAGS) = ', line):
                value = re.sub(r'\$(.)', r'\1', line.split('=', 1)[1])
                words += shlex.split(value)
    return words


def read_words(build):
    flags_make = os.path.join(build, FLAGS_MAKE)
    ninja = os.path.join(build, 'build.ninja')
    words = []
    if os.path.exists(flags_make):
        words = read_flags_make(flags_make)
    elif os.path.exists(ninja):
        words = read_ninja(ninja)
    if not words:
        refuse(f'no compile flags of InnoDB in {build}: neither flags.make nor '
               'build.ninja has an innobase target')
    return words


def recorded_folders(build):
    """Returns where the source and the build folder were when configured."""
    found = {}
    with open(os.path.join(build, 'CMakeCache.txt'), encoding='utf-8') as file:
        for line in file:
            match = re.match(r'CMAKE_(HOME_DIRECTORY|CACHEFILE_DIR):INTERNAL=(.*)',
                             line)
            if match:
                found[match[1]] = match[2].strip()
    if len(found) != 2:
        refuse(f'{build}/CMakeCache.txt does not say what it was configured from')
    return found['HOME_DIRECTORY'], found['CACHEFILE_DIR']


def moved(path, moves):
    for old, new in moves:
        if path == old or path.startswith(old + '/'):
            return new + path[len(old):]
    return path


def sort_words(words, moves):
    """Returns definitions, include folders, other options and the standard."""
    definitions, includes, options, standard = [], [], [], None
    words = iter(words)
    for word in words:
        if word.startswith('-D'):
            value = word[2:] or next(words)
            if value.split('=')[0] not in NOT_OURS:
                definitions.append(value)
        elif word == '-isystem' or word.startswith('-I'):
            folder = word[2:] if word.startswith('-I') else next(words)
            folder = moved(folder or next(words), moves)
            if os.path.isdir(folder):
                includes.append(folder)
        elif word.startswith('-std='):
            standard = word
        elif SHARED_OPTION.match(word):
            options.append(word)
    return definitions, includes, options, standard


def cmake_list(name, values):
    unique = dict.fromkeys(values)
    return f'set({name}' + ''.join(f'\n  [==[{v}]==]' for v in unique) + ')'


def main():
    source, build, generated = (os.path.realpath(a) for a in sys.argv[1:4])
    old_source, old_build = recorded_folders(build)
    # A build folder may lie inside the source tree, so it is looked for first.
    moves = ((old_build, build), (old_source, source))
    definitions, includes, options, standard = sort_words(read_words(build), moves)
    if standard is None:
        refuse(f'the InnoDB flags in {build} name no C++ standard')
    if 'MYSQL_SERVER' not in definitions:
        refuse(f'the InnoDB flags in {build} lack MYSQL_SERVER')
    print(f'set(HOST_SOURCE [==[{source}]==])')
    print(f'set(HOST_STANDARD {standard})')
    print(cmake_list('HOST_DEFINITIONS', definitions))
    print(cmake_list('HOST_INCLUDES', includes + [generated]))
    print(cmake_list('HOST_OPTIONS', options))


if __name__ == '__main__':
    main()
