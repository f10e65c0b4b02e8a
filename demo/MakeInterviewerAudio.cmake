# Speaks the interviewer's side of the sample interview into one sound file, at build time:
#   cmake -DSCRIPT=interview.json -DOUTPUT=interviewer.flac -DWORK=<dir> -P MakeInterviewerAudio.cmake
# Each turn of the script whose "spoken" is not false is said with espeak-ng, followed by
# "pause_after_s" seconds of silence (the candidate's answer); 1.5 s of silence come first.
cmake_minimum_required(VERSION 3.25)
find_program(ESPEAK espeak-ng REQUIRED)
find_program(SOX sox REQUIRED)
file(READ "${SCRIPT}" json)
string(JSON count LENGTH "${json}" turns)
file(MAKE_DIRECTORY "${WORK}")
execute_process(COMMAND "${SOX}" -n -r 48000 -c 1 -b 16 "${WORK}/lead.wav" trim 0 1.5 COMMAND_ERROR_IS_FATAL ANY)
set(parts "${WORK}/lead.wav")
math(EXPR last "${count} - 1")
foreach(i RANGE ${last})
  string(JSON spoken ERROR_VARIABLE no_key GET "${json}" turns ${i} spoken)
  if(spoken STREQUAL "OFF" OR spoken STREQUAL "false")
    continue()
  endif()
  string(JSON question GET "${json}" turns ${i} question)
  string(JSON pause GET "${json}" turns ${i} pause_after_s)
  execute_process(COMMAND "${ESPEAK}" -v en-us -s 155 -w "${WORK}/said-${i}.wav" "${question}" COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND "${SOX}" "${WORK}/said-${i}.wav" -r 48000 -c 1 -b 16 "${WORK}/turn-${i}.wav" pad 0 ${pause}
                  COMMAND_ERROR_IS_FATAL ANY)
  list(APPEND parts "${WORK}/turn-${i}.wav")
endforeach()
execute_process(COMMAND "${SOX}" ${parts} "${OUTPUT}" COMMAND_ERROR_IS_FATAL ANY)
