#' Labelled values as factors
#'
#' Turns a column with value labels (attribute \code{labels}) into a factor
#' whose levels are the labelled values and the values present, in the order
#' of the values, each named by its label. Applied to a data frame, it turns
#' every labelled column. Columns without labels are left as they are.
#'
#' @param x A vector or a data frame.
#' @param levels \code{"default"}: labels where there are, values elsewhere;
#'   \code{"values"}: the values themselves.
#' @param ... Unused.
#' @return A factor, or the data frame with its labelled columns as factors.
#'   The factor keeps the column's other attributes, so that
#'   \code{write_murv} writes the original values back.
#' @export
as_factor <- function(x, ...) UseMethod("as_factor")

#' @rdname as_factor
#' @export
as_factor.default <- function(x, levels = c("default", "values"), ...) {
  levels <- match.arg(levels)
  labs <- attr(x, "labels", exact = TRUE)
  if (is.null(labs)) {
    if (is.character(x) || is.numeric(x) || is.logical(x)) return(factor(x))
    return(x)
  }
  .to_factor(x, labs, levels)
}

#' @rdname as_factor
#' @export
as_factor.factor <- function(x, ...) x

#' @rdname as_factor
#' @export
as_factor.data.frame <- function(x, levels = c("default", "values"), ...) {
  levels <- match.arg(levels)
  for (j in seq_along(x)) {
    if (!is.null(attr(x[[j]], "labels", exact = TRUE)) && !is.factor(x[[j]])) x[[j]] <- as_factor(x[[j]], levels = levels)
  }
  x
}
