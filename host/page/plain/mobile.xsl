<?xml version="1.0" encoding="UTF-8"?>
<!-- The component's page for phones as the middle of a page of this host's. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="html" encoding="UTF-8" indent="no"/>
  <xsl:param name="title"/>
  <xsl:param name="view"/>
  <xsl:param name="send"/>
  <xsl:param name="name"/>
  <xsl:param name="download"/>
  <xsl:param name="cameras"/><!-- empty for who may not look at them in a browser -->

  <xsl:template match="/mobile">
    <div>
      <h1><xsl:value-of select="$title"/></h1>
      <xsl:apply-templates select="view|upload"/>
      <xsl:if test="$cameras != ''"><p><a href="/"><xsl:value-of select="$cameras"/></a></p></xsl:if>
    </div>
  </xsl:template>
  <xsl:template match="view">
    <xsl:call-template name="midlet">
      <xsl:with-param name="midlet">Viewlander</xsl:with-param>
      <xsl:with-param name="what" select="$view"/>
    </xsl:call-template>
  </xsl:template>
  <xsl:template match="upload">
    <xsl:call-template name="midlet">
      <xsl:with-param name="midlet">Sendora</xsl:with-param>
      <xsl:with-param name="what" select="$send"/>
    </xsl:call-template>
  </xsl:template>
  <xsl:template name="midlet">
    <xsl:param name="midlet"/>
    <xsl:param name="what"/>
    <form action="/mobile/{$midlet}.jar" method="get">
      <h2><xsl:value-of select="$what"/></h2>
      <label for="{$midlet}"><xsl:value-of select="$name"/>:</label>
      <xsl:text> </xsl:text>
      <input type="text" id="{$midlet}" name="JarName" value="{$midlet}"/>
      <input type="submit" value="{$download}"/>
    </form>
  </xsl:template>
</xsl:stylesheet>
