"""Is the peak real? The library's answer as plain records."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, NamedTuple


class Estimate(NamedTuple):
    """A value and its standard deviation over repeated recordings."""

    value: float
    error: float


@dataclass(frozen=True)
class CorrelationPeak:
    """What stands out of the background; None is what cannot be told.

    Attributes
    ----------
    side : {'peak', 'dip'}
    cut : bool
        Part of it lies outside the view: move the view.
    pairs, background_pairs : Estimate
        Counts above the background (of a dip those missing), and the background in the same bins.
    place_ps : Estimate or None
        Mean delay of the pairs, the offset removed.
    fwhm_ps : Estimate or None
        Full width at half maximum; None below two bins, `narrowest_ps`.
    g2 : Estimate or None
        Within half a width of the place, in units of the background.
    accidental_ratio : Estimate or None
        Coincidences to accidentals.
    """

    side: str
    cut: bool
    pairs: Estimate
    background_pairs: Estimate
    place_ps: Estimate | None
    fwhm_ps: Estimate | None
    narrowest_ps: float
    g2: Estimate | None
    accidental_ratio: Estimate | None


@dataclass(frozen=True)
class Comb:
    """Pulsed light: peaks one period apart.

    Attributes
    ----------
    log10_probability : float
        Of a period as clear in a view without one.
    period_ps : Estimate
    tooth_ps : float
        The place of a tooth, the offset removed.
    level : Estimate
        The floor between the teeth in units of chance.
    pairs : Estimate
        Average of a tooth above the floor.
    teeth : int
    """

    log10_probability: float
    period_ps: Estimate
    tooth_ps: float
    level: Estimate
    pairs: Estimate
    teeth: int


@dataclass(frozen=True)
class Analysis:
    """What a correlation histogram shows.

    Attributes
    ----------
    verdict : {'none', 'peak', 'dip', 'comb'}
    significant : bool
        Below 1e-5 by chance.
    ambiguous : bool
        A comb of like teeth: the delay is known up to a multiple of the period.
    cut : bool
        Part of the peak lies outside the view.
    log10_probability, sigmas : float
        That unrelated light shows something as clear anywhere in the view.
    level : Estimate
        The measured background in units of chance; 1 where it could not be measured (`level_measured`).
    differs_from_chance : bool
        The level is off by more than four of its errors: drift, blinking, dead time.
    peak : CorrelationPeak or None
        Of a comb its odd tooth.
    comb : Comb or None
    drifting, too_short : bool or None
        Both rates drift together; the view reaches beyond half of the recording. None where no lists of times are
        there to tell: of streams and sums.
    share_a, share_b : Estimate or None
        Pairs of the peak for each tag of a channel, likewise.

    Notes
    -----
    The numbers, and when not to believe them, are on the page "Is the peak real?" of the documentation.
    """

    verdict: str
    significant: bool
    ambiguous: bool
    cut: bool
    log10_probability: float
    sigmas: float
    level: Estimate
    level_measured: bool
    differs_from_chance: bool
    peak: CorrelationPeak | None
    comb: Comb | None
    drifting: bool | None = None
    too_short: bool | None = None
    share_a: Estimate | None = None
    share_b: Estimate | None = None


def _with_estimates(fields: dict[str, Any]) -> dict[str, Any]:
    return {name: Estimate(*value) if isinstance(value, tuple) else value for name, value in fields.items()}


def analysis_of(fields: dict[str, Any]) -> Analysis:
    """What the extension gives."""
    if fields["peak"] is not None:
        fields["peak"] = CorrelationPeak(**_with_estimates(fields["peak"]))
    if fields["comb"] is not None:
        fields["comb"] = Comb(**_with_estimates(fields["comb"]))
    return Analysis(**_with_estimates(fields))
