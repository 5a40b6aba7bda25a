"""Lines that the daemon logs for a request, as (priority, text)."""

from common import DEBUG, ERROR


def about(identifier, count):
    return DEBUG, f"About to perform privileged operation '{identifier}' with {count} arguments."


def metadata(arguments, entries):
    return DEBUG, (f"Actual number of arguments is {arguments}. {entries} additional metadata "
                   "entries have been transferred.")


def unauthorized(code):
    return DEBUG, f"Operation could not be authorized, rejected with error code {code}."


def rejected(identifier, reason):
    return ERROR, f"Operation {identifier} was rejected because {reason}"


def executed(identifier, option):
    return DEBUG, f"Operation {identifier} will be executed with feedback option {option}."


def completed(identifier, code):
    return DEBUG, f"Operation {identifier} was completed with return code {code}."
